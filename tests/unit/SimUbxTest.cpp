#include <gtest/gtest.h>

#include <string>

#include "sim/gnss/Receiver.h"
#include "support/Frames.h"

namespace ecu::koru::sim {
namespace {

/// One message: class, id and payload in hexadecimal.
std::string frame(const std::string& digits) {
  const std::string bytes = test::bytes(digits);
  return test::ubx(static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1]), bytes.substr(2));
}

/// The host's end of a receiver that says nothing by itself, so that answers stand alone.
struct Host {
  Host() : receiver(silent()) {}
  static ReceiverOptions silent() {
    ReceiverOptions options;
    options.faults = parse_faults("silence=99.9@100");
    options.utc_start_us += 100'000;
    return options;
  }

  /// What comes within half a second.
  std::string ask(const std::string& digits) {
    const std::string question = frame(digits);
    receiver.write({reinterpret_cast<const uint8_t*>(question.data()), question.size()});
    receiver.advance_to(now_us += 500'000);
    std::string bytes(receiver.available(), '\0');
    receiver.read({reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()});
    return bytes;
  }

  Receiver receiver;
  int64_t now_us = 0;
};

TEST(SimUbx, AnswersPollsByteByByte) {
  const struct {
    const char *poll, *answer, *acknowledgement;
  } cases[] = {
      {"0600", "060001000000D0080000009600000700030000000000", "05010600"},
      {"0613", "06131B00F0B9", "05010613"},
      {"063E",
       "063E 00202007 0008100001000101 0101030001000101 0204080000000101 0308100000000101 0400080000000103"
       "0500030001000105 06080E0001000101",
       "0501063E"},
      {"0A28", "0A28010F030303000000", ""},
      {"0699", "", "05000699"},  // no such message
      {"0107", "", ""},
  };
  for (const auto& c : cases) {
    std::string expected;
    for (const std::string digits : {c.answer, c.acknowledgement})
      expected += digits.empty() ? "" : frame(digits);
    EXPECT_EQ(Host().ask(c.poll), expected) << c.poll;
  }
}

TEST(SimUbx, KeepsWhatIsPossibleAndRefusesTheRest) {
  const struct {
    std::string set, kept;  // kept: what a poll tells afterwards; empty: refused
  } cases[] = {
      {"0608C80001000000", "0608C80001000000"},
      {"0608630001000100", ""},          // faster than 100 ms
      {"06130E00F039", "06130E00F0B9"},  // the pins without their bit
      {"06170F41000200000000000000010000000000000000", "06170F41000200000000000000010000000000000000"},
      {"060001000000C0080000019600000700030000000000", ""},  // 38401 baud
  };
  for (const auto& c : cases) {
    Host host;
    const std::string id = c.set.substr(0, 4);
    const std::string before = host.ask(id);
    const std::string yes = frame("0501" + id);
    EXPECT_EQ(host.ask(c.set), c.kept.empty() ? frame("0500" + id) : yes) << c.set;
    EXPECT_EQ(host.ask(id), c.kept.empty() ? before : frame(c.kept) + yes) << c.set;
  }
}

}  // namespace
}  // namespace ecu::koru::sim
