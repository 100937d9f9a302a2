#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/DaemonTables.h"
#include "bench/ProcessFigures.h"
#include "bench/ReactionRun.h"
#include "bench/TimeoutRun.h"

namespace bench {

namespace {

constexpr size_t RUNS = 5;  // of each state, and the least number of time-outs of a kind

struct Column {
  Event event;
  const char* name;
};
constexpr std::array<Column, 7> COLUMNS{{{Event::STOP, "stop"},
                                         {Event::SILENCE_ON, "silence"},
                                         {Event::SILENCE_OFF, "silence ends"},
                                         {Event::CONSTELLATION, "constellation"},
                                         {Event::GNSS_OFF, "GNSS off"},
                                         {Event::GNSS_ON, "GNSS on"},
                                         {Event::BROKER_BACK, "broker"}}};

const std::vector<ReactionState>& states() {
  using enum Event;
  static const std::vector<Event> always{GNSS_OFF, GNSS_ON, BROKER_BACK, STOP};
  static const std::string control = "disable_hw_init = false\n";
  static const std::string debug = "loglevel = DEBUG\ndebugflags = 0x2000\n";  // records each connectSerial
  static const test::Words unit{"--var", "hwversion=zpt"};
  static const test::Words no_receiver{"--var", "hasgnss=false"};
  // The first fix, after 24 s, shows that the antenna's supervision is at work.
  static const std::vector<ReactionState> states{
      {"receiving at 1 Hz", Device::RECEIVER, "STATUS=valid fix", always, unit},
      {"silent line", Device::SILENT, "STATUS=no valid fix", always, unit},
      {"searching the receiver", Device::SILENT, "STATUS=searching the receiver", always, unit, control},
      {"configuring the receiver",
       Device::ANTENNA_OFF,
       "STATUS=valid fix",
       {CONSTELLATION, GNSS_OFF, GNSS_ON, SILENCE_ON, SILENCE_OFF, BROKER_BACK, STOP},
       unit,
       control},
      {"radio silence",
       Device::ANTENNA_OFF,
       "STATUS=valid fix",
       {CONSTELLATION, GNSS_OFF, GNSS_ON, SILENCE_OFF, SILENCE_ON, BROKER_BACK, STOP},
       unit,
       control,
       true},
      {"no device", Device::NONE, "STATUS=no valid fix", always, unit, debug},
      {"GNSS switched off",
       Device::SILENT,
       "STATUS=GNSS is switched off",
       {GNSS_ON, GNSS_OFF, STOP},
       {"--var", "hwversion=zpt", "--param", "0xA00F=00"}},
      {"CAN input, frames once a second", Device::NONE, "STATUS=valid fix", always, no_receiver, "", false,
       true},
      {"CAN input, no frames", Device::NONE, "STATUS=no valid fix", always, no_receiver}};
  return states;
}

/// Returns "median/worst", or "-" without values.
std::string medianAndWorst(std::vector<double> values) {
  if (values.empty()) return "-";
  std::ranges::sort(values);
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.2f/%.2f", values[(values.size() - 1) / 2], values.back());
  return text.data();
}

void printReaction(const ReactionState& state) {
  const Reactions reactions = measureReactions(state, RUNS);
  std::printf("%-32s", state.name);
  for (const auto& [event, name] : COLUMNS) {
    const auto found = reactions.find(event);
    std::printf(" %13s", found == reactions.end() ? "-" : medianAndWorst(found->second).c_str());
  }
  std::printf("\n");
  (void)std::fflush(stdout);
}

void printLateness(const Lateness& lateness) {
  std::printf("%-40s %9zu   %13s\n", lateness.name.c_str(), lateness.late_ms.size(),
              medianAndWorst(lateness.late_ms).c_str());
  (void)std::fflush(stdout);
}

}  // namespace

void printReactions() {
  std::printf("\nfrom an event to its effect, median/worst ms of %zu; load of the machine %s\n\n%-32s", RUNS,
              loadAverage().c_str(), "");
  for (const auto& column : COLUMNS) std::printf(" %13s", column.name);
  std::printf("\n");
  for (const auto& state : states()) printReaction(state);
  std::printf("%-32s %13s\n", "aim", "20.00");

  std::printf("\nhow late a time-out acts, median/worst ms; load of the machine %s\n\n%-40s %9s   %13s\n",
              loadAverage().c_str(), "", "time-outs", "ms");
  for (const auto& lateness : measureLosses(RUNS)) printLateness(lateness);
  printLateness(measureWithoutDevice(RUNS));
  printLateness(measureWithoutFrames(RUNS));
  printLateness(measurePolls(RUNS));
  std::printf("%-40s %9s   %13s\n", "aim", "", "5.00");
}

}  // namespace bench
