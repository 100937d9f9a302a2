// Why there is no valid fix, and which of the reasons are reported.

#include <gmock/gmock.h>

#include <cerrno>

#include "core/FixReport.h"
#include "core/ReceptionWindow.h"
#include "publish/StatusSignals.h"

namespace {

using namespace ecu::koru;
using namespace gpspub;
using namespace testing;
using Health = pb::GnssHealth;

constexpr int64_t S = 1'000'000;  // us
constexpr Reception ALL_IS_WELL{.bytes = 500, .sentences = 9, .rejected = 0, .rmc = 1, .frames = 2};

FixFacts receiver(int32_t status, int satellites = 0) {
  FixFacts facts;
  facts.source = FixFacts::Source::RECEIVER;
  facts.status = status;
  facts.satellites = satellites;
  facts.device = "/dev/ttyFP3";
  facts.ever_heard = true;
  facts.baud = 38400;
  facts.reception = ALL_IS_WELL;
  return facts;
}

FixFacts changed(FixFacts facts, void (*change)(FixFacts&)) {
  change(facts);
  return facts;
}

const FixFacts GOOD = changed(receiver(3, 12), [](FixFacts& f) { f.accuracy_m = 1.44; });
const FixFacts BAD = receiver(2);
const FixFacts LOST = changed(receiver(1, -1), [](FixFacts& f) {
  f.silent_us = 3 * S;
  f.reopens = true;
});
const FixFacts SOUGHT = changed(LOST, [](FixFacts& f) {
  f.is_sought = true;
  f.ever_heard = false;
  f.rates_tried = 2;
  f.baud = 57600;
});
const FixFacts JUST_HEARD = changed(BAD, [](FixFacts& f) { f.reception = {}; });
const FixFacts OFF;

TEST(FixState, EachCauseHasItsReason) {
  const FixFacts can = changed({}, [](FixFacts& f) { f.source = FixFacts::Source::CAN; });
  const struct {
    Health::State state;
    const char* reason;
    FixFacts base;
    void (*change)(FixFacts&);
  } rows[] = {
      {Health::VALID, "valid fix after 25 s (12 satellites, 1.4 m)", GOOD, nullptr},
      {Health::VALID, "valid fix after 25 s (12 satellites)", receiver(3, 12), nullptr},
      {Health::VALID, "valid fix after 25 s", receiver(3, -1), nullptr},
      {Health::UNCONFIRMED, "valid fix, but not trusted: the receiver does not answer commands", GOOD,
       [](FixFacts& f) { f.is_mute = true; }},
      {Health::UNCONFIRMED, "valid fix, but not trusted: the receiver refuses commands", GOOD,
       [](FixFacts& f) { f.is_mute = f.is_refusing = true; }},
      {Health::GNSS_OFF, "GNSS is switched off", OFF, nullptr},
      {Health::NO_DEVICE,
       "no valid fix: /dev/ttyFP3 cannot be opened: No such file or directory; trying again every second",
       LOST, [](FixFacts& f) { f.open_error = ENOENT; }},
      {Health::NO_DEVICE, "no valid fix: /dev/ttyFP3 went away; trying again every second", LOST,
       [](FixFacts& f) { f.went_away = true; }},
      {Health::RADIO_SILENCE, "no valid fix: radio silence", LOST,
       [](FixFacts& f) { f.radio_silent = true; }},
      {Health::VALID, "valid fix after 25 s (12 satellites, 1.4 m)", GOOD,
       [](FixFacts& f) { f.radio_silent = true; }},  // the receiver does not obey
      {Health::SILENT, "no valid fix: the receiver has been silent for 3 s; opening the port again", LOST,
       nullptr},
      {Health::SILENT, "no valid fix: the receiver has been silent for 7 s", LOST,
       [](FixFacts& f) {
         f.reopens = false;
         f.silent_us = 7 * S;
       }},
      {Health::SILENT, "no valid fix: the receiver has been silent for 3 s; opening the port again", LOST,
       [](FixFacts& f) { f.is_sought = true; }},  // at the rate that it had
      {Health::SEARCHING, "searching the receiver: 57600 baud, 3rd of 5", SOUGHT, nullptr},
      {Health::SEARCHING, "searching the receiver: 57600 baud, 2nd of 5, round 3", SOUGHT,
       [](FixFacts& f) { f.rates_tried = 11; }},
      {Health::SEARCHING, "searching the receiver: 57600 baud, 3rd of 5", SOUGHT,
       [](FixFacts& f) {
         f.reception = {.bytes = 412};
         f.silent_us = 0;
       }},
      {Health::UNFRAMED,
       "no valid fix: 412 bytes/s arrive at 38400 baud, none forms a sentence: wrong rate or line ends?", BAD,
       [](FixFacts& f) { f.reception = {.bytes = 412}; }},
      {Health::UNFRAMED,
       "no valid fix: 412 bytes/s arrive over SPI, none forms a sentence: no receiver on the bus?", BAD,
       [](FixFacts& f) {
         f.reception = {.bytes = 412};
         f.is_on_spi = true;
       }},
      {Health::BAD_CHECKSUMS, "no valid fix: 5 of 9 sentences have a wrong checksum", BAD,
       [](FixFacts& f) { f.reception.sentences = 4, f.reception.rejected = 5; }},
      {Health::NO_SENTENCES, "no valid fix: UBX frames arrive at 38400 baud, but no sentence", BAD,
       [](FixFacts& f) { f.reception = {.bytes = 80, .frames = 2}; }},
      {Health::NO_RMC, "no valid fix: sentences arrive at 38400 baud, but no RMC", BAD,
       [](FixFacts& f) { f.reception.rmc = 0; }},
      {Health::SUPPLY_SWITCHED_OFF,
       "antenna supply switched off at cold start; expect about 25 s without a fix", BAD,
       [](FixFacts& f) { f.supply_off_us = 3 * S; }},
      {Health::NO_FIX, "no valid fix: 0 satellites", BAD, [](FixFacts& f) { f.supply_off_us = 90 * S; }},
      {Health::ANTENNA_OFF, "no valid fix: the antenna's supply is switched off by a system parameter", BAD,
       [](FixFacts& f) { f.antenna_on = false; }},
      {Health::ANTENNA_SHORT, "no valid fix: antenna short circuit", BAD,
       [](FixFacts& f) { f.antenna_status = ANTENNA_SHORT; }},
      {Health::ANTENNA_OPEN, "no valid fix: antenna open", BAD,
       [](FixFacts& f) { f.antenna_status = ANTENNA_OPEN; }},
      {Health::NO_DATE, "no valid fix: the date is not known yet", BAD,
       [](FixFacts& f) { f.is_undated = true; }},
      {Health::NO_FIX, "no valid fix: 1 satellite", BAD, [](FixFacts& f) { f.satellites = 1; }},
      {Health::NO_FIX, "no valid fix: the receiver calls its position invalid (9 satellites)", BAD,
       [](FixFacts& f) { f.satellites = 9; }},
      {Health::NO_FIX, "no valid fix: the receiver has none", receiver(1, -1), nullptr},
      {Health::VALID, "valid fix after 25 s", can, [](FixFacts& f) { f.status = 3; }},
      {Health::CAN_SILENT, "no valid fix: no time and date arrive over CAN", can, nullptr},
      {Health::CAN_NO_FIX, "no valid fix: the unit that sends over CAN has none", can,
       [](FixFacts& f) { f.frames_come = true; }}};
  std::set<int> states;
  for (const auto& row : rows) {
    FixFacts facts = row.base;
    if (row.change != nullptr) row.change(facts);
    EXPECT_EQ(judge(facts), row.state) << row.reason;
    EXPECT_EQ(reasonOf(row.state, facts, ValidChange::FIRST, 25 * S), row.reason);
    states.insert(row.state);
  }
  EXPECT_EQ(states.size(), size_t{Health::State_ARRAYSIZE} - 3);  // all but STARTING, STOPPED, GONE
}

/// Feeds a report with the facts that hold from a second on, each second and whenever it is due. Returns
/// "second:record" of each, separated by " | ".
std::string reported(const std::vector<std::pair<double, FixFacts>>& changes, double seconds) {
  FixReport report(0);
  std::string records;
  int64_t last_us = 0;
  for (int64_t now = S; now <= static_cast<int64_t>(seconds * S);) {
    auto change = std::ranges::find_if(
        changes, [now](const auto& each) { return static_cast<int64_t>(each.first * S) > now; });
    if (const auto record = report.update(std::prev(change)->second, now)) {
      records += (records.empty() ? "" : " | ") + std::to_string(now / S) + ":" + record->text;
    }
    EXPECT_GT(report.due(), now) << records;  // what is due has been done
    last_us = now - now % S;
    now = std::min(last_us + S, report.due());
  }
  return records;
}

TEST(FixReport, TellsLastingStatesOnceAndEachAtMostOnceAMinute) {
  const std::string good = "valid fix after 1 s (12 satellites, 1.4 m)", bad = "no valid fix: 0 satellites";
  const struct {
    const char* what;
    std::vector<std::pair<double, FixFacts>> changes;
    double seconds;
    std::string records;
  } rows[] = {
      {"good from the start", {{0, GOOD}}, 600, "3:" + good},
      {"bad from the start", {{0, BAD}}, 600, "2:" + bad},
      {"good after a while",
       {{0, SOUGHT}, {2, JUST_HEARD}, {3, GOOD}},
       30,
       "5:valid fix after 3 s (12 satellites, 1.4 m)"},
      {"a pause", {{0, GOOD}, {10, LOST}, {11, JUST_HEARD}, {12, GOOD}}, 30, "3:" + good},
      {"bad after a pause",
       {{0, GOOD}, {10, LOST}, {11, JUST_HEARD}, {12, BAD}},
       30,
       "3:" + good + " | 12:" + bad},
      {"one epoch is missed", {{0, GOOD}, {10, BAD}, {11, GOOD}}, 30, "3:" + good},
      {"lost and found",
       {{0, GOOD}, {10, BAD}, {34, GOOD}},
       60,
       "3:" + good + " | 12:" + bad + " | 36:valid fix again after 25 s (12 satellites, 1.4 m)"},
      {"the reasons of a loss follow each other",
       {{0, GOOD}, {10, BAD}, {11, LOST}, {20, SOUGHT}},
       40,
       "3:" + good +
           " | 12:no valid fix: the receiver has been silent for 3 s; opening the port again | "
           "22:searching the receiver: 57600 baud, 3rd of 5"},
      {"flicker of a reason", {{0, BAD}, {10, LOST}, {11, BAD}, {12, LOST}, {13, BAD}}, 30, "2:" + bad},
      {"it comes and goes, and ends bad",
       {{0, GOOD}, {10, BAD}, {15, GOOD}, {20, BAD}, {25, GOOD}, {30, BAD}},
       120,
       "3:" + good + " | 12:" + bad + " | 17:valid fix again after 6 s (12 satellites, 1.4 m) | 72:" + bad},
      {"every other epoch",
       {{0, BAD}, {1, GOOD}, {2, BAD}, {3, GOOD}, {4, BAD}, {5, GOOD}, {6, BAD}, {7, GOOD}, {8, BAD}},
       30,
       "3:" + good + " | 10:" + bad},
      {"a fix now and then", {{0, BAD}, {10, GOOD}, {11, BAD}, {20, GOOD}, {21, BAD}}, 30, "2:" + bad},
      {"trusted late",
       {{0, changed(GOOD, [](FixFacts& f) { f.is_mute = true; })}, {20, GOOD}},
       40,
       "3:valid fix, but not trusted: the receiver does not answer commands | "
       "22:valid fix, trusted now (12 satellites, 1.4 m)"},
      {"switched off at once",
       {{0, GOOD}, {10, OFF}, {11, GOOD}},
       30,
       "3:" + good + " | 10:GNSS is switched off | 13:valid fix again after 2 s (12 satellites, 1.4 m)"},
  };
  for (auto row : rows) {
    row.changes.emplace_back(1e9, FixFacts());
    EXPECT_EQ(reported(row.changes, row.seconds), row.records) << row.what;
  }
}

TEST(FixReport, AModeBeginsAnew) {
  FixReport report(0);
  for (int64_t now = 0; now <= 5 * S; now += S) (void)report.update(GOOD, now);
  EXPECT_EQ(report.lastValid(), 5 * S);
  (void)report.update(OFF, 6 * S);
  EXPECT_EQ(report.state(), Health::GNSS_OFF);
  report.begin(20 * S);
  EXPECT_EQ(report.state(), Health::STARTING);
  EXPECT_EQ(report.due(), NEVER);
  EXPECT_EQ(report.update(BAD, 21 * S), std::nullopt);
  EXPECT_EQ(report.due(), 22 * S);
}

TEST(ReceptionWindow, HoldsTheLastFullSecond) {
  ReceptionWindow window;
  window.begin(10 * S, {.bytes = 100, .sentences = 1});
  window.sample(10 * S + 500'000, {.bytes = 300, .sentences = 2});
  EXPECT_EQ(window.lastSecond().bytes, 0U);
  window.sample(12 * S, {.bytes = 500, .sentences = 9, .rmc = 2});
  EXPECT_EQ(window.lastSecond().bytes, 200U);  // a second
  EXPECT_EQ(window.lastSecond().sentences, 8U);
  window.sample(13 * S, {.bytes = 500, .sentences = 9, .rmc = 2});
  EXPECT_EQ(window.lastSecond().bytes + window.lastSecond().rmc, 0U);
}

}  // namespace
