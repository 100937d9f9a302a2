// The receiver's configuration over a scripted receiver: which frames are sent, in which order, and what bad
// answers do.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "nmea/GnssUtils.h"
#include "platform/Topics.h"
#include "scenario/World.h"
#include "support/LogCapture.h"

namespace {

using namespace ecu::koru;
using namespace test;
using testing::ElementsAre;

constexpr int64_t MS = 1000;
constexpr int64_t S = 1'000'000;

/// "06 00" of a frame: class and id; "06 00 poll" without payload.
std::string kind(const std::string& frame) {
  char text[24];
  static_cast<void>(std::snprintf(text, sizeof text, "%02X %02X%s", static_cast<uint8_t>(frame[2]),
                                  static_cast<uint8_t>(frame[3]), frame.size() == 8 ? " poll" : ""));
  return text;
}

/// A receiver that sends an epoch a second and answers frames as it is told: the answer to each kind of
/// frame.
class ScriptedReceiver final : public Script {
 public:
  explicit ScriptedReceiver(std::map<std::string, std::string> answers) : m_answers(std::move(answers)) {}
  void advance_to(int64_t now_us) override {
    for (; m_next_epoch_us <= now_us; m_next_epoch_us += S) {
      if (epochs) add(m_next_epoch_us, epoch(static_cast<int>(m_next_epoch_us / S % 60)) + extra);
    }
    m_now_us = now_us;
    Script::advance_to(now_us);
  }
  [[nodiscard]] int64_t next_byte_us() const override {
    return std::min(m_next_epoch_us, Script::next_byte_us());
  }
  void write(std::span<const uint8_t> frame) override {
    const std::string kind_of = kind({frame.begin(), frame.end()});
    if (ignored[kind_of]-- > 0) return;
    if (nakked[kind_of]-- > 0) {
      add(m_now_us + 20 * MS, ubx(0x05, 0x00, bytes("06 13")));
      return;
    }
    const auto answer = m_answers.find(kind_of);
    if (answer != m_answers.end()) add(m_now_us + 20 * MS, answer->second);
    if (answer == m_answers.end() && nak) add(m_now_us + 20 * MS, ubx(0x05, 0x00, bytes("06 00")));
  }
  void set_host_baud(unsigned baud) override { host_bauds.push_back(baud); }

  bool epochs = true;
  bool nak = false;
  std::map<std::string, int> nakked;   // so many of a kind, before one is answered
  std::map<std::string, int> ignored;  // likewise
  std::string extra;                   // behind every epoch
  std::vector<unsigned> host_bauds;

 private:
  std::map<std::string, std::string> m_answers;
  int64_t m_next_epoch_us = 300 * MS;
  int64_t m_now_us = 0;
};

const std::string PORT_38400 = "01 00 00 00 C0 08 00 00 00 96 00 00 07 00 03 00 00 00 00 00";
const std::string PORT_9600 = "01 00 00 00 C0 08 00 00 80 25 00 00 07 00 03 00 00 00 00 00";
// Supported GPS, GLONASS, BeiDou, Galileo; enabled GPS and GLONASS; three at a time.
const std::string MON_GNSS = "00 0F 03 03 03 00 00 00";
// Three systems and two augmentations: GPS on, SBAS on, Galileo off, QZSS on, GLONASS on.
const std::string CFG_GNSS =
    "00 20 20 05 00 08 10 00 01 00 01 01 01 01 03 00 01 00 01 01 02 04 08 00 00 00 01 01"
    "05 00 03 00 01 00 01 01 06 08 0E 00 01 00 01 01";

std::map<std::string, std::string> goodAnswers() {
  return {{"06 00 poll", ubx(0x06, 0x00, bytes(PORT_38400))},
          {"0A 28 poll", ubx(0x0A, 0x28, bytes(MON_GNSS))},
          {"06 13 poll", ubx(0x06, 0x13, bytes("0E 00 F0 B9"))},
          {"06 3E poll", ubx(0x06, 0x3E, bytes(CFG_GNSS))}};
}

/// What was sent, each frame once however often it was repeated.
std::vector<std::string> withoutResends(const std::vector<Sent>& sent) {
  std::vector<std::string> frames;
  for (const Sent& each : sent) {
    if (frames.empty() || frames.back() != each.bytes) frames.push_back(each.bytes);
  }
  return frames;
}

std::string message(uint8_t cls, uint8_t id, uint8_t rate) {
  return ubx(0x06, 0x01,
             std::string{static_cast<char>(cls), static_cast<char>(id), 0, static_cast<char>(rate), 0, 0,
                         static_cast<char>(rate), 0});
}

TEST(ReceiverControl, SendsItsFramesInOrderWithTheirChecksums) {
  ScriptedReceiver receiver(goodAnswers());
  World world(receiver);
  auto& config = world.service->ubloxConfig();
  config.setGnssSystemRequested(0x09);  // GPS and Galileo
  config.setMeasurementPeriod(250);
  config.setRawCmdPost({bytes("B5 62 06 31 00 00 FF FF")});
  world.run(400);
  const std::string port = ubx(0x06, 0x00);
  const std::string antenna_poll = ubx(0x06, 0x13);
  const std::string antenna_on = ubx(0x06, 0x13, bytes("1F 00 F0 B9"));
  const std::string mon_gnss = ubx(0x0A, 0x28);
  std::string selected = bytes(CFG_GNSS);
  selected[4 + 2 * 8 + 4] = 1;  // Galileo on
  selected[4 + 4 * 8 + 4] = 0;  // GLONASS off
  const std::vector<std::string> expected{
      port,  // the second poll is the same frame
      mon_gnss,
      antenna_poll,
      antenna_on,
      antenna_poll,
      antenna_on,
      antenna_poll,
      antenna_on,
      message(0x01, 0x21, 1),
      message(0xF0, 0x02, 1),
      message(0xF0, 0x03, 1),
      message(0xF0, 0x04, 1),
      message(0xF0, 0x07, 1),
      message(0xF0, 0x05, 0),
      message(0xF0, 0x06, 0),
      message(0xF0, 0x08, 0),
      message(0xF0, 0x01, 0),
      message(0x0A, 0x09, 5),
      ubx(0x06, 0x3E),
      ubx(0x06, 0x11, bytes("00 00")),
      ubx(0x06, 0x24,
          bytes("FF FF 04 03 50 C3 00 00 88 13 00 00 05 3C FA 00 FA 00 64 00 2C 01 32 00 00 00 00 00"
                "00 00 00 00 00 00 00 00")),
      message(0xF0, 0x00, 1),
      ubx(0x06, 0x17, bytes("0F 40 00 02 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00")),
      ubx(0x0A, 0x04),
      ubx(0x06, 0x3E, selected),
      mon_gnss,
      ubx(0x06, 0x3E),
      mon_gnss,
      ubx(0x06, 0x31),
      mon_gnss,  // four steps without a raw command
      ubx(0x06, 0x08, bytes("FA 00 01 00 01 00"))};
  EXPECT_EQ(withoutResends(world.terminal.sent), expected);
  EXPECT_THAT(receiver.host_bauds, ElementsAre(38400));
  EXPECT_THAT(world.terminal.opens_us, testing::SizeIs(1));
}

TEST(ReceiverControl, NothingThatTheReceiverAnswersStopsPublication) {
  const std::string one_baud = "01 00 00 00 C0 08 00 00 01 00 00 00 07 00 03 00 00 00 00 00";
  struct {
    const char* name;
    std::map<std::string, std::string> answers;
    bool nak = false;
    bool trusted = false;
  } const cases[]{
      {"NAKs everything", {}, true},
      {"NAKs all but the port", {{"06 00 poll", ubx(0x06, 0x00, bytes(PORT_38400))}}, true, true},
      {"answers nothing but NMEA", {}},
      {"one baud", {{"06 00 poll", ubx(0x06, 0x00, bytes(one_baud))}}},
      {"short answers",
       {{"06 00 poll", ubx(0x06, 0x00, "x") + ubx(0x06, 0x24) + ubx(0x06, 0x77) + ubx(0x0A, 0x09) +
                           ubx(0x0A, 0x28) + ubx(0x0A, 0x77) + ubx(0x06, 0x3E) + ubx(0x77, 0x01)}}}};
  for (const auto& c : cases) {
    ScriptedReceiver receiver(c.answers);
    receiver.nak = c.nak;
    World world(receiver);
    bool trusted = false;  // at the end; leaving the loop forgets the port
    world.time.at(599 * S, [&] { trusted = world.service->ubloxConfig().isPortConfirmed(); });
    const auto published = world.run(600);
    const auto valid = std::count_if(published.begin(), published.end(),
                                     [](const Published& each) { return each.data.status() == 3; });
    EXPECT_GE(valid, 598) << c.name;
    EXPECT_TRUE(trusted || !c.trusted) << c.name;
  }
}

TEST(ReceiverControl, HuntsTheBaudRateAndPulsesTheResetAtEvery19thChange) {
  ScriptedReceiver receiver({});
  receiver.epochs = false;
  World world(receiver);
  world.run(19 * 15 + 20);
  ASSERT_GE(receiver.host_bauds.size(), 20U);
  EXPECT_THAT(std::vector(receiver.host_bauds.begin(), receiver.host_bauds.begin() + 7),
              ElementsAre(38400, 57600, 115200, 19200, 9600, 38400, 57600));
  EXPECT_EQ(world.resets.pulses(), 1);
}

/// How often the frame was sent in a row, from the first time on.
long timesInARow(const std::vector<Sent>& sent, const std::string& frame, int64_t since_us = 0) {
  const auto first = std::find_if(sent.begin(), sent.end(), [&](const Sent& each) {
    return each.at_us >= since_us && each.bytes == frame;
  });
  const auto other = std::find_if(first, sent.end(), [&](const Sent& each) { return each.bytes != frame; });
  return other - first;
}

TEST(ReceiverControl, WhatItsPollSufferedDoesNotCountForTheAntennaCommand) {
  const struct {
    std::map<std::string, int> nakked, ignored;
    int times;
  } rows[] = {{{}, {}, 4}, {{{"06 13 poll", 2}, {"06 13", 2}}, {}, 2 + 4}, {{}, {{"06 13 poll", 3}}, 4}};
  for (const auto& row : rows) {
    ScriptedReceiver receiver(goodAnswers());
    receiver.nakked = row.nakked;
    receiver.ignored = row.ignored;
    World world(receiver);
    world.run(65);
    EXPECT_EQ(timesInARow(world.terminal.sent, ubx(0x06, 0x13, bytes("1F 00 F0 B9"))), row.times);
  }
}

// Whenever the request comes within the four periods of a command, each of the two port polls has its own
// four.
TEST(ReceiverControl, ARestartBeginsWithBothPortPolls) {
  for (const int64_t at : {100 * S, 103 * S, 106 * S, 109 * S, 400 * S}) {
    ScriptedReceiver receiver(goodAnswers());
    World world(receiver);
    world.service->enableMqttSystemSelection();
    world.time.at(at, [&] { world.inject(topic::PARAMETER_BEIDOU, "\1"); });
    world.time.at(at + S, [&] { world.inject(topic::PARAMETER_BEIDOU, std::string(1, '\0')); });
    world.run(static_cast<double>(at / S + 40));
    EXPECT_EQ(timesInARow(world.terminal.sent, ubx(0x06, 0x00), at), 2 * 4) << at / S;
  }
}

// Most of its worth is under the thread sanitizer: nothing orders the observers' threads with the service's.
TEST(ReceiverControl, ObserversMayBeCalledFromAnyThreadWhileTheSequenceRuns) {
  ScriptedReceiver receiver(goodAnswers());
  World world(receiver);
  world.service->enableMqttSystemSelection();
  world.service->enableLoggingControl();
  const std::vector<std::pair<std::string, char>> messages{
      {topic::PARAMETER_GALILEO, 1}, {topic::PARAMETER_ANTENNA_ON, 1}, {topic::PARAMETER_GNSS_ON, 1},
      {topic::BLACKOUT_MODE, 0},     {topic::HW_VERSION, 'q'},         {topic::LOG_CONFIG, 0},
      {topic::GNSS_SOURCE, 0}};
  std::atomic<bool> firing{true};
  std::vector<std::thread> threads;
  world.time.at(5 * S, [&] {
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([&] {
        while (firing) {
          for (const auto& [topic, value] : messages) world.inject(topic, std::string(1, value));
          std::this_thread::yield();
        }
      });
    }
  });
  world.time.at(400 * S, [&] {
    firing = false;
    for (auto& thread : threads) thread.join();
  });
  bool initialised = false;
  world.time.at(799 * S, [&] { initialised = world.service->ubloxConfig().isInitialised(); });
  const auto published = world.run(800);
  EXPECT_TRUE(initialised);
  EXPECT_GT(published.size(), 790U);
}

TEST(ReceiverControl, ChangesOfTheConstellationsRestartTheSequenceOnce) {
  ScriptedReceiver receiver(goodAnswers());
  World world(receiver);
  world.service->enableMqttSystemSelection();
  world.time.at(400 * S, [&] { world.terminal.sent.clear(); });
  world.time.at(410 * S, [&] {
    EXPECT_THAT(world.terminal.sent, testing::IsEmpty());
    for (const char on : {'\1', '\0'}) world.inject(topic::PARAMETER_BEIDOU, std::string(1, on));
    for (const char on : {'\0', '\1'}) world.inject(topic::PARAMETER_GALILEO, std::string(1, on));
  });
  world.run(1200);
  const auto frames = withoutResends(world.terminal.sent);
  std::string selected = bytes(CFG_GNSS);
  selected[4 + 2 * 8 + 4] = 1;  // Galileo on
  EXPECT_EQ(std::count(frames.begin(), frames.end(), ubx(0x06, 0x00)), 1);
  EXPECT_EQ(std::count(frames.begin(), frames.end(), ubx(0x06, 0x3E, selected)), 1);
}

TEST(ReceiverControl, RadioSilenceEndsWithAPulseOfTheResetLine) {
  ScriptedReceiver receiver(goodAnswers());
  World world(receiver);
  world.service->setRadioSilenceConfigured(true);
  world.time.at(400 * S, [&] {
    world.terminal.sent.clear();
    world.terminal.opens_us.clear();
    receiver.epochs = false;
    world.inject(topic::BLACKOUT_MODE, "\1");
  });
  world.time.at(410 * S, [&] {  // longer than a lost receiver is missed
    std::string sent;
    for (const Sent& each : world.terminal.sent) sent += each.bytes;
    EXPECT_EQ(sent, ubx(0x06, 0x13, bytes("0E 00 F0 B9")) +
                        ubx(0x02, 0x41, bytes("00 00 00 00 00 00 00 00 06 00 00 00 00 00 00 00")) +
                        ubx(0x06, 0x04, bytes("00 00 08 00")));
    EXPECT_THAT(world.terminal.opens_us, testing::IsEmpty());
    EXPECT_EQ(world.resets.pulses(), 0);
    receiver.epochs = true;
    world.inject(topic::BLACKOUT_MODE, std::string(1, '\0'));
    receiver.add(410 * S, ubx(0x06, 0x13, bytes("0E 00 F0 B9")));  // taken in the pass that lifts the silence
    world.terminal.sent.clear();
  });
  world.time.at(410 * S + 490 * MS, [&] { EXPECT_EQ(world.resets.pulses(), -1) << "it is not low yet"; });
  const auto published = world.run(412);
  EXPECT_EQ(world.resets.pulses(), 1);
  EXPECT_THAT(world.terminal.opens_us, testing::SizeIs(1));
  EXPECT_EQ(published.back().data.status(), 3);
  EXPECT_THAT(withoutResends(world.terminal.sent), ElementsAre(ubx(0x06, 0x00)));
}

TEST(ReceiverControl, WithoutHardwareInitRadioSilenceChangesNothing) {
  ScriptedReceiver receiver({});
  receiver.extra = ubx(0x06, 0x13, bytes("0E 00 F0 B9"));
  World world(receiver);
  world.service->disableHardwareInit();
  for (const char on : {'\1', '\0'}) {
    world.time.at((on == '\1' ? 5 : 8) * S,
                  [&world, on] { world.inject(topic::BLACKOUT_MODE, std::string(1, on)); });
  }
  const auto published = world.run(12);
  EXPECT_THAT(world.terminal.sent, testing::IsEmpty());
  EXPECT_EQ(world.resets.pulses(), 0);
  EXPECT_THAT(world.terminal.opens_us, testing::SizeIs(1));
  EXPECT_GE(std::count_if(published.begin(), published.end(),
                          [](const Published& each) { return each.data.status() == 3; }),
            11);
}

TEST(ReceiverControl, WrongRateAfterTheSequenceIsSetRightAgain) {
  ScriptedReceiver receiver(goodAnswers());
  World world(receiver);
  world.time.at(400 * S, [&] { receiver.extra = ubx(0x06, 0x00, bytes(PORT_9600)); });
  world.time.at(401 * S, [&] { receiver.extra.clear(); });
  bool confirmed = false;
  world.time.at(799 * S, [&] { confirmed = world.service->ubloxConfig().isPortConfirmed(); });
  world.run(800);
  EXPECT_TRUE(confirmed);
}

TEST(ReceiverControl, ColdStartWithTheSupplyOnIsCorrectedAndSaved) {
  auto answers = goodAnswers();
  answers["06 13 poll"] = ubx(0x06, 0x13, bytes("1F 00 F0 B9"));
  ScriptedReceiver receiver(answers);
  World world(receiver);
  world.run(80);
  const auto frames = withoutResends(world.terminal.sent);
  const auto first = std::find(frames.begin(), frames.end(), ubx(0x06, 0x13));
  ASSERT_GE(frames.end() - first, 4);
  EXPECT_EQ(*(first + 1), ubx(0x06, 0x13, bytes("0E 00 F0 B9")));
  EXPECT_EQ(*(first + 2), ubx(0x06, 0x13));
  EXPECT_EQ(*(first + 3), ubx(0x06, 0x09, bytes("00 00 00 00 00 04 00 00 00 00 00 00 07")));
}

/// The records of a start, a blackout and the whole sequence after it.
std::string recordsWith(unsigned flags, unsigned baud = 38400) {
  ScriptedReceiver receiver(goodAnswers());
  std::string version(40 + 134 * 30, '\0');
  version.replace(0, 4, "SW 1").replace(30, 4, "HW 2").append("the 135th" + std::string(21, '\0'));
  receiver.extra = ubx(0x0A, 0x04, version) + ubx(0x05, 0x01, bytes("06 13"));
  World world(receiver, {.baud = baud});
  world.service->ubloxConfig().setGnssSystemRequested(0x09);
  world.time.at(2 * S, [&] { receiver.extra.clear(); });
  world.time.at(40 * S, [&] { world.inject(topic::BLACKOUT_MODE, "\1"); });
  world.time.at(42 * S, [&] { world.inject(topic::BLACKOUT_MODE, std::string(1, '\0')); });
  LogCapture log;
  gpspub::GnssUtils::setLogFlags(flags);
  world.run(330);
  gpspub::GnssUtils::setLogFlags(0);
  return log.take();
}

TEST(ReceiverControl, RecordsOfAnAreaNeedItsBitAndTheOthersNone) {
  const std::string plain = recordsWith(0);
  for (const char* text :
       {" INFO koru.gpspub: Ublox Gnss: swVersion SW 1, hwVersion HW 2, ", ", the 135th\n",
        " NOTICE koru.gpspub: Changing from gnss system 0x3 to 0x9", ". Now initialised\n"})
    EXPECT_THAT(plain, testing::HasSubstr(text));
  EXPECT_THAT(recordsWith(0, 4800),
              testing::HasSubstr(" INFO koru.gpspub: Change Baud rate from 38400 to 4800\n"));
  const struct {
    unsigned flags;
    const char* text;
  } rows[] = {{0x4, "process_CFG-PRT. payload len 20 portID 1 baud rate 38400"},
              {0x2000, "process_CFG-PRT. payload len 20 portID 1 baud rate 38400"},
              {0x8000, "checkGnssSystem() m_CFG_GNSS_string.length 0\n"},
              {0x40000, "UbloxConfig sends m_init_command_idx 3 B5 62 06 13 00 00 19 51"},
              {0x40000, "Antenna power disabled at cold start. Should enable antenna_power"},
              {0x2000000, "Antenna power disabled at cold start. Should enable antenna_power"},
              {0x2000000, "RadioSilence requested state is 1"},
              {0x2000000, "Recover from radio silence"},
              {0x4000000, "Ublox ACK received on class 0x06 id 0x13 init command idx = 0"}};
  for (const auto& row : rows) {
    EXPECT_THAT(recordsWith(row.flags), testing::HasSubstr(row.text)) << std::hex << row.flags;
    EXPECT_THAT(plain, testing::Not(testing::HasSubstr(row.text)));
  }
}

}  // namespace
