#include <gtest/gtest.h>

#include <string>

#include "ublox/CommandSequence.h"

using ecu::koru::gpspub::CommandSequence;

namespace {

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

/// Events: a answered, n NAK, t period over, T the same after new lines, s the same during radio silence,
/// c port confirmed, u unconfirmed, o other command, p command of the rate, r restart, x switched off.
/// Returns a letter for each action: R resend, S send, F finish, N next rate, X with a reset, "-" none.
std::string actions(CommandSequence& sequence, const std::string& events) {
  std::string seen;
  int lines = 0;
  const auto add = [&seen](CommandSequence::Action action) { seen += "-RSFNX"[static_cast<size_t>(action)]; };
  for (const char event : events) {
    if (event == 'a') add(sequence.answered());
    if (event == 'n') add(sequence.refused());
    if (event == 't' || event == 'T') add(sequence.periodOver(event == 'T' ? ++lines : lines, true));
    if (event == 's') add(sequence.periodOver(lines, false));
    if (event == 'c') sequence.confirmPort();
    if (event == 'u') sequence.unconfirmPort();
    if (event == 'o' || event == 'p') sequence.otherCommand(event == 'p');
    if (event == 'r') sequence.restart();
    if (event == 'x') sequence.switchOff();
  }
  return seen;
}

TEST(CommandSequence, DecidesWhatIsSentNext) {
  const std::string all(31, 'a'), none = "ttttt", sent(31, 'S');
  const struct {
    std::string events, actions, end;  ///< where it ends: state, init command, complex step
  } rows[] = {
      {"", "", "HUNTING 0 0"},
      {"c" + repeated("a", 21), repeated("S", 21), "INIT 21 0"},
      {"c" + repeated("a", 22), repeated("S", 22), "COMPLEX 22 0"},
      {"c" + all, sent, "COMPLEX 22 9"},
      {"c" + all + "aannn", sent + "F-RR-", "DONE 0 0"},
      {all + "a", sent + "F", "DONE 0 0"},  // answers also count at an unconfirmed rate
      // NAKs and periods are counted for each command.
      {"cnnannn", "RRSRRS", "INIT 2 0"},
      {"ctttatttt", "RRRSRRRS", "INIT 2 0"},
      {"ctttottt", "RRRRRR", "INIT 0 0"},
      // While the port is unconfirmed, the rate stays as long as lines arrive, and changes otherwise.
      {"aa" + none, "SSRRRRN", "HUNTING 2 0"},
      {"aaTTTTT", "SSRRRRS", "HUNTING 0 0"},
      {repeated("a", 25) + "TTTTTc" + repeated("a", 22), repeated("S", 25) + "RRRRS" + repeated("S", 22),
       "COMPLEX 22 3"},
      {"p", "", "CHANGING_RATE 0 0"},
      {"p" + none, "RRRRN", "CHANGING_RATE 0 0"},
      {"pTTTTT", "RRRRS", "HUNTING 0 0"},
      {repeated(none, 19), repeated("RRRRN", 18) + "RRRRX", "HUNTING 0 0"},
      {repeated(none, 18) + "cu" + none, repeated("RRRRN", 19), "HUNTING 0 0"},
      {repeated(none, 18) + "ttttstt", repeated("RRRRN", 18) + "RRRRNRR", "HUNTING 0 0"},
      // A restart works in every state.
      {"aar", "SS", "HUNTING 0 0"},
      {"pr", "", "HUNTING 0 0"},
      {"caar", "SS", "INIT 0 0"},
      {"c" + all + "r", sent, "INIT 0 0"},
      {"c" + all + "ara", sent + "FS", "INIT 1 0"},
      {"cxran", "--", "OFF 0 0"},
  };
  for (const auto& row : rows) {
    CommandSequence sequence;
    EXPECT_EQ(actions(sequence, row.events), row.actions) << row.events;
    const char* const states[] = {"HUNTING ", "CHANGING_RATE ", "INIT ", "COMPLEX ", "DONE ", "OFF "};
    EXPECT_EQ(states[static_cast<size_t>(sequence.state())] + std::to_string(sequence.initCommandIdx()) +
                  " " + std::to_string(sequence.complexCommandIdx()),
              row.end)
        << row.events;
  }
}

}  // namespace
