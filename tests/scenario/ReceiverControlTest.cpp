// Receiver control with a scripted receiver: which frames are sent when, and the effect of bad answers.

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "platform/com/Topics.h"
#include "scenario/World.h"
#include "support/LogCapture.h"
#include "wire/HexDump.h"
#include "wire/ServiceLog.h"

namespace {

using namespace ecu::koru;
using namespace test;
using namespace testing;

const std::string NOT_AVAILABLE(8, '\xFF'), YES(1, '\1'), NO(1, '\0');

/// Returns CFG-PRT of UART 1 at a rate, both the receiver's answer and the command that sets it.
std::string port(unsigned baud) {
  std::string payload = bytes("01 00 00 00 C0 08 00 00 00 00 00 00 07 00 03 00 00 00 00 00");
  for (size_t i = 0; i < 4; ++i) payload[8 + i] = static_cast<char>(baud >> 8 * i & 0xFF);
  return ubx(0x06, 0x00, payload);
}

/// Returns CFG-GNSS of a receiver with all systems, in which the named gnssIds are enabled. 7 is also
/// enabled: nobody selects it, so it stays.
std::string systems(const std::string& enabled) {
  std::string payload = bytes("00 20 20 08");
  for (char id = 0; id < 8; ++id) {
    const bool on = (enabled + '7').find(static_cast<char>('0' + id)) != std::string::npos;
    payload += std::string{id, 8, 16, 0, on ? '\1' : '\0', 0, id, 1};
  }
  return ubx(0x06, 0x3E, payload);
}

const std::string SUPPLY_ON = ubx(0x06, 0x13, bytes("1F 00 F0 B9"));
const std::string SUPPLY_OFF = ubx(0x06, 0x13, bytes("0E 00 F0 B9"));

/// Returns a frame's name, or its class, id and payload in hexadecimal if it has none.
std::string name(const std::string& frame) {
  static const std::map<std::string, std::string> NAMES{
      {ubx(0x06, 0x00), "port"},
      {ubx(0x0A, 0x28), "capable"},
      {ubx(0x06, 0x13), "antenna"},
      {ubx(0x06, 0x3E), "systems"},
      {SUPPLY_ON, "on"},
      {SUPPLY_OFF, "off"},
      {ubx(0x06, 0x09, bytes("00 00 00 00 00 04 00 00 00 00 00 00 07")), "save"},
      {ubx(0x02, 0x41, bytes("00 00 00 00 00 00 00 00 06 00 00 00 00 00 00 00")), "standby"},
      {ubx(0x06, 0x04, bytes("00 00 08 00")), "stop"}};
  if (const auto known = NAMES.find(frame); known != NAMES.end()) return known->second;
  const std::string body = frame.substr(2, 2) + frame.substr(6, frame.size() - 8);
  const auto* const bytes = reinterpret_cast<const uint8_t*>(body.data());
  const std::string intact = ubx(bytes[0], bytes[1], body.substr(2));
  return (frame == intact ? "" : "corrupt ") +
         gpspub::hexDumpMessage(bytes, static_cast<int>(body.size()), 0, 0, false);
}

/// The receiver's answers, by the frame's name.
using Answers = std::map<std::string, std::string>;

/// Supports GPS, GLONASS, BeiDou and Galileo. GPS, GLONASS, SBAS and QZSS are enabled.
const Answers GOOD{{"port", port(38400)},
                   {"capable", ubx(0x0A, 0x28, bytes("00 0F 03 03 03 00 00 00"))},
                   {"antenna", SUPPLY_OFF},
                   {"systems", systems("0156")}};

const Answers MUTE;

/// The service with a receiver that sends an epoch a second and gives the chosen answers. Times are in s.
struct Scene final : Script, World {
  explicit Scene(Answers its_answers = GOOD, const World::Options& options = {})
      : World(static_cast<ByteSource&>(*this), options), answers(std::move(its_answers)) {
    service->enableMqttSystemSelection();
  }
  void advance_to(int64_t now_us) override {
    for (; m_next_epoch_us <= now_us; m_next_epoch_us += S) {
      if (epochs) add(m_next_epoch_us, epoch(static_cast<int>(m_next_epoch_us / S % 60)));
    }
    Script::advance_to(now_us);
  }
  [[nodiscard]] int64_t next_byte_us() const override {
    return std::min(m_next_epoch_us, Script::next_byte_us());
  }
  void write(std::span<const uint8_t> frame) override {
    const std::string named = name({frame.begin(), frame.end()});
    if (ignored[named]-- > 0) return;
    const auto answer = answers.find(named);
    if (nakked[named]-- > 0 || (nak && answer == answers.end())) {
      add(time.now_us() + 20 * MS, ubx(0x05, 0x00, bytes("06 13")));
    } else if (answer != answers.end()) {
      add(time.now_us() + 20 * MS, answer->second);
    }
  }
  void comes(double s, const std::string& frame) { add(static_cast<int64_t>(s * S), frame); }
  /// Returns the names of the frames sent in that time. With `once`, a repeated frame counts once.
  [[nodiscard]] std::string sent(double from_s = 0, double to_s = 1e6, bool once = false) const {
    std::string names, last;
    for (const Sent& each : terminal.sent) {
      const double at_s = static_cast<double>(each.at_us) / S;
      if (at_s < from_s || at_s >= to_s || (once && each.bytes == last)) continue;
      names += (names.empty() ? "" : " ") + name(last = each.bytes);
    }
    return names;
  }

  Answers answers;
  bool epochs = true;
  bool nak = false;                    // refuses frames that have no answer
  std::map<std::string, int> nakked;   // how many are refused before one is answered
  std::map<std::string, int> ignored;  // how many are lost before that

 private:
  int64_t m_next_epoch_us = 300 * MS;
};

TEST(ReceiverControl, SendsItsFramesInOrderWithTheirChecksums) {
  Scene scene;
  auto& config = scene.service->ubloxConfig();
  scene.service->requests().setGnssSystemRequested(0x09);  // GPS and Galileo
  config.setMeasurementPeriod(250);
  config.setRawCmdPost({bytes("B5 62 06 31 00 00 FF FF")});
  std::string version = "SW 1" + std::string(26, '\0') + "HW 2" + std::string(6, '\0');
  for (int i = 0; i < 135; ++i) version += "extension" + std::string(21, '\n');
  scene.comes(1, ubx(0x0A, 0x04, version));
  LogCapture log;
  scene.run(400);
  EXPECT_THAT(
      log.take(),
      AllOf(ContainsRegex(": Ublox Gnss: swVersion SW 1, hwVersion HW 2(, extension(.x0A){21}){5}[.]{3}\n"),
            HasSubstr(" NOTICE koru.gpspub: Changing from"), HasSubstr(". Now initialised\n"),
            Not(HasSubstr(" DEBUG "))));
  EXPECT_EQ(scene.sent(0, 400, true),
            "port capable antenna on antenna on antenna on "
            "06010121000100000100 0601F002000100000100 0601F003000100000100 0601F004000100000100 "
            "0601F007000100000100 0601F005000000000000 0601F006000000000000 0601F008000000000000 "
            "0601F001000000000000 06010A09000500000500 systems 06110000 "
            "0624FFFF040350C3000088130000053CFA00FA0064002C013200000000000000000000000000 "
            "0601F000000100000100 06170F40000200000000000000010000000000000000 0A04 " +
                name(systems("0125")) + " capable systems capable 0631 capable 0608FA0001000100");
  EXPECT_THAT(scene.terminal.bauds, ElementsAre(38400));
}

TEST(ReceiverControl, NothingThatTheReceiverAnswersStopsPublication) {
  const std::string short_answers = ubx(0x06, 0x00, "x") + ubx(0x06, 0x24) + ubx(0x06, 0x77) +
                                    ubx(0x0A, 0x09) + ubx(0x0A, 0x28) + ubx(0x0A, 0x77) + ubx(0x06, 0x3E) +
                                    ubx(0x77, 0x01);
  for (const auto& answers : {MUTE, {{"port", port(38400)}}, {{"port", short_answers}}}) {
    for (const bool nak : {false, true}) {
      Scene scene(answers, {.hwversion = "zpt"});
      scene.nak = nak;  // refuses every other frame
      EXPECT_GE(occurrences(cadence(scene.run(300)), ":3/"), 298U);
      const bool trusted = scene.sentOn(topic::VP1_TX).back() != NOT_AVAILABLE;
      EXPECT_EQ(trusted, answers.contains("port") && answers.at("port") == port(38400));
    }
  }
}

// Each rate is tried with four polls, for five periods.
TEST(ReceiverControl, HuntsTheBaudRateAndPulsesTheResetAtEvery19thChange) {
  const struct {
    double seconds, silence_s;  ///< radio silence is requested from the start until then
    unsigned changes;
    int pulses;
  } rows[] = {{227, 0, 18, 0},   {232, 0, 19, 1},   {455, 0, 37, 1},  {462, 0, 38, 2},
              {462, 462, 38, 0}, {407, 205, 33, 0}, {412, 205, 34, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.seconds);
    Scene scene(MUTE);
    scene.epochs = false;
    if (row.silence_s > 0) scene.injectAt(0, topic::BLACKOUT_MODE, YES);
    scene.injectAt(row.silence_s, topic::BLACKOUT_MODE, NO);
    scene.run(row.seconds);
    ASSERT_EQ(scene.terminal.bauds.size(), row.changes + 1);
    EXPECT_EQ(scene.resets.pulses(), row.pulses);
    EXPECT_EQ(scene.terminal.sent.size() / 4, row.changes);
    EXPECT_THAT(std::vector(scene.terminal.bauds.begin(), scene.terminal.bauds.begin() + 7),
                ElementsAre(38400, 57600, 115200, 19200, 9600, 38400, 57600));
  }
}

TEST(ReceiverControl, AResetLineThatIsNotSetUpIsSetUpFirst) {
  const struct {
    const char* hwversion;
    bool has_line_121;
    std::string set_up, line_121;
    int pulses_of_197;  ///< every world has its value file
  } rows[] = {{"n2", false, "121 out none", "", 1},
              {"n2", true, "  ", std::string("0\0001\0", 4), 0},
              {"qrx", true, "  ", "", 1}};
  for (const auto& row : rows) {
    Scene scene(MUTE, {.hwversion = row.hwversion});
    scene.epochs = false;
    const std::filesystem::path root = scene.resets.root(), line = root / "gpio121";
    std::filesystem::create_directory(line);
    for (const auto& path : {root / "export", line / "direction", line / "edge"}) std::ofstream{path};
    if (row.has_line_121) std::ofstream{line / "value"};
    LogCapture log;
    scene.run(250);
    EXPECT_THAT(log.take(), Not(HasSubstr("Error writing")));
    EXPECT_EQ(text_of(root / "export") + ' ' + text_of(line / "direction") + ' ' + text_of(line / "edge"),
              row.set_up);
    EXPECT_EQ(text_of(line / "value"), row.line_121);
    EXPECT_EQ(scene.resets.pulses(), row.pulses_of_197);
  }
}

TEST(ReceiverControl, ThreeNaksOrFourPeriodsEndACommandAndNoOtherCounts) {
  const struct {
    std::map<std::string, int> nakked, ignored;
    const char* sent;
  } rows[] = {{{}, {}, "capable antenna on on on on antenna"},
              {{{"antenna", 2}, {"on", 2}}, {}, "capable antenna antenna antenna on on on on on on antenna"},
              {{{"on", 3}}, {}, "capable antenna on on on antenna"},
              {{}, {{"antenna", 3}}, "capable antenna antenna antenna antenna on on on on antenna"}};
  for (const auto& row : rows) {
    Scene scene;
    scene.nakked = row.nakked;
    scene.ignored = row.ignored;
    scene.run(65);
    EXPECT_THAT(scene.sent(), HasSubstr(row.sent));
  }
}

TEST(ReceiverControl, RefusedCommandsAreNamed) {
  Scene scene(GOOD);
  scene.nakked = {{"06110000", 3}, {"0608E80301000100", 3}};
  LogCapture log("WARNING");
  scene.run(400);
  const std::string text = log.take();
  EXPECT_THAT(text, HasSubstr("m_complex_command_idx 0. The receiver refuses CFG-RXM continuous\n"));
  EXPECT_EQ(occurrences(text, "it refused 2 of the commands: CFG-RXM continuous, CFG-RATE\n"), 1U) << text;
}

TEST(ReceiverControl, LeavesTheConstellationsOfAReceiverThatDoesNotTellWhatItCan) {
  Scene scene(GOOD);
  scene.answers.erase("capable");
  scene.service->requests().setGnssSystemRequested(0x09);
  scene.run(400);
  EXPECT_THAT(scene.sent(), AllOf(HasSubstr(" systems "), Not(HasSubstr("063E"))));
}

// Each of the two port polls has its own four periods, whenever the requests arrive within a command's four.
TEST(ReceiverControl, ChangesOfTheConstellationsRestartTheSequenceOnceWithBothPortPolls) {
  for (const double at : {100, 103, 106, 109, 400}) {
    Scene scene;
    for (const auto& on : {NO, YES}) scene.injectAt(at, topic::PARAMETER_GALILEO, on);
    for (const auto& on : {YES, NO}) scene.injectAt(at + 1, topic::PARAMETER_BEIDOU, on);
    scene.run(at + 800);
    EXPECT_THAT(scene.sent(at), StartsWith("port port port port port port port port capable")) << at;
    const std::string once = scene.sent(at, at + 800, true);
    EXPECT_EQ(occurrences(once, "port"), 1U);
    EXPECT_EQ(occurrences(once, name(systems("01256"))), 1U);
  }
}

// Nothing orders the observers' threads and the service's. Only the thread sanitizer finds most faults.
TEST(ReceiverControl, ObserversMayBeCalledFromAnyThreadWhileTheSequenceRuns) {
  Scene scene;
  scene.service->enableLoggingControl();
  std::vector<std::jthread> threads;
  const auto fire = [&](const std::stop_token& stop) {
    for (; !stop.stop_requested(); std::this_thread::yield()) {
      for (const auto& topic : {topic::BLACKOUT_MODE, topic::LOG_CONFIG, topic::GNSS_SOURCE})
        scene.inject(topic, NO);
      for (const auto& topic : {topic::PARAMETER_GALILEO, topic::PARAMETER_ANTENNA_ON,
                                topic::PARAMETER_GNSS_ON, topic::HW_VERSION})
        scene.inject(topic, YES);
    }
  };
  scene.at(5, [&] {
    for (int i = 0; i < 3; ++i) threads.emplace_back(fire);
  });
  scene.at(400, [&] { threads.clear(); });
  scene.at(799, [&] { EXPECT_TRUE(scene.service->ubloxConfig().isInitialised()); });
  EXPECT_GT(scene.run(800).size(), 790U);
}

TEST(ReceiverControl, SystemsAreSelectedWhereTheyAreNotThoseRequested) {
  const struct {
    uint32_t requested;
    int augmentation;      ///< -1: not configured
    const char* selected;  ///< gnssIds; nullptr: nothing is sent
  } rows[] = {{0x03, -1, nullptr}, {0x03, 3, nullptr}, {0x103, 0x103, nullptr}, {0x01, -1, "015"},
              {0x02, -1, "6"},     {0x04, -1, "3"},    {0x0B, -1, "01256"},     {0x03, 0, "06"},
              {0x03, 7, "01456"},  {0x01, 2, "05"}};
  for (const auto& row : rows) {
    Scene scene;
    auto& config = scene.service->ubloxConfig();
    scene.service->requests().setGnssSystemRequested(row.requested);
    if (row.augmentation != -1) config.setGnssAugmentationRequested(static_cast<uint32_t>(row.augmentation));
    scene.run(350);
    const std::string first_step = row.selected == nullptr ? "capable" : name(systems(row.selected));
    EXPECT_THAT(scene.sent(0, 350, true), HasSubstr(" 0A04 " + first_step + " "))
        << row.requested << ' ' << row.augmentation;
  }
}

TEST(ReceiverControl, JudgesTheAntennaByEachAnswer) {
  // 1, 0: the receiver reports the supply on, off. S, s: radio silence begins, ends. P, p: the antenna's
  // parameter is on, off. B: 0 and S in one pass. -: the set-up is switched off. n: silence is not
  // configured. After the colon stand the frames that are sent at once.
  for (const std::string row :
       {"0:on 0:on 1:on", "1:off 0:save 0:on", "1:off 1:save 1:on",  // cold, then warm
        "S: 0:on 0:off,standby,stop 1:off,standby,stop", "S: 1:off 0:save 0:off,standby,stop",
        "0:on S:off,standby,stop 1:off,standby,stop", "1:off S: 0:save 1:off,standby,stop",
        "p: 0:off 1:off 0:port 0:capable P:port 0:on", "p: 1:off 0:save 0:port 1:off",
        "p: 0:off S:off,standby,stop 0:off,standby,stop", "-: 0: 1: S: 0: s: 0:", "n: 1:on S: 0:on s: 1:on",
        "n: S: 0:on 0:save 1:on", "0:on B:off,standby,stop 0:off,standby,stop"}) {
    Scene scene(MUTE);
    std::istringstream steps(row);
    std::string seen;
    double at = 0.5;
    for (std::string step; steps >> step;) {
      const char event = step[0];
      if (event == '-') scene.service->disableHardwareInit();
      if (event == 'n') scene.service->setRadioSilenceConfigured(false);
      if (event == 'S' || event == 's' || event == 'B')
        scene.injectAt(at, topic::BLACKOUT_MODE, event == 's' ? NO : YES);
      if (event == 'P' || event == 'p')
        scene.injectAt(at, topic::PARAMETER_ANTENNA_ON, event == 'P' ? YES : NO);
      if (event == '0' || event == '1' || event == 'B')
        scene.comes(at, event == '1' ? SUPPLY_ON : SUPPLY_OFF);
      scene.at(at + 0.4, [&, event, at] {
        std::string names = scene.sent(at);
        std::replace(names.begin(), names.end(), ' ', ',');
        seen += std::string(seen.empty() ? "" : " ") + event + ':' + names;
      });
      at += 0.5;
    }
    scene.run(at);
    EXPECT_EQ(seen, row);
    EXPECT_EQ(scene.resets.pulses(), 0);
    EXPECT_THAT(scene.terminal.opens_us, SizeIs(1));
  }
}

TEST(ReceiverControl, PublishesTheAntennasStatus) {
  Scene scene(MUTE);
  std::string status(60, '\0');
  for (char& value = status[20]; value < 6; ++value) scene.comes(1 + value, ubx(0x0A, 0x09, status));
  scene.comes(9, ubx(0x0A, 0x09, std::string(59, '\3')));
  scene.run(10);
  // The values 2, 3 and 4 count. In this unit's circuit "OK" and "open" are exchanged.
  EXPECT_THAT(scene.sentOn(topic::ANTENNA_OPEN_CIRCUIT), ElementsAre(YES, NO, NO));
  EXPECT_THAT(scene.sentOn(topic::ANTENNA_SHORT_CIRCUIT), ElementsAre(NO, YES, NO));
}

TEST(ReceiverControl, RadioSilenceEndsWithAPulseOfTheResetLine) {
  Scene scene(GOOD, {.hwversion = "zpt"});
  scene.at(398.5, [&] { scene.epochs = false; });
  scene.injectAt(401, topic::BLACKOUT_MODE, YES);
  scene.at(411, [&] {  // by then a lost receiver would be noticed
    EXPECT_EQ(scene.sent(400), "off standby stop");
    EXPECT_EQ(scene.terminal.sent.back().at_us, 401 * S) << "the request does not wait for anything";
    EXPECT_THAT(scene.terminal.opens_us, SizeIs(1));
    EXPECT_EQ(scene.resets.pulses(), 0);
    scene.epochs = true;
  });
  scene.injectAt(411, topic::BLACKOUT_MODE, NO);
  scene.comes(411, SUPPLY_OFF);  // taken in the pass that lifts the silence
  scene.at(411.49, [&] { EXPECT_EQ(scene.resets.pulses(), -1) << "it is not low yet"; });
  EXPECT_EQ(scene.run(413).back().data.status(), 3);
  EXPECT_EQ(scene.resets.pulses(), 1);
  EXPECT_THAT(scene.terminal.opens_us, SizeIs(2));
  EXPECT_EQ(scene.sent(411), "port");
  // No fix is an error of the module, unless it is silent on purpose.
  EXPECT_THAT(scene.sentOn(topic::MODULE_ERROR, 0, 399), AllOf(SizeIs(399), Each(NO)));
  EXPECT_THAT(scene.sentOn(topic::MODULE_ERROR, 399, 401), ElementsAre(YES, YES));
  EXPECT_THAT(scene.sentOn(topic::MODULE_ERROR, 401.1, 411), AllOf(SizeIs(10), Each(NO)));
}

TEST(ReceiverControl, APulseIsNeverCutShortAndARequestDuringItIsNotLost) {
  for (const bool stops : {true, false}) {
    Scene scene(GOOD, {.hwversion = "zpt"});
    scene.injectAt(401, topic::BLACKOUT_MODE, YES);
    scene.injectAt(411, topic::BLACKOUT_MODE, NO);
    scene.injectAt(411.1, topic::BLACKOUT_MODE, YES);
    scene.run(stops ? 411.2 : 412);
    EXPECT_EQ(scene.resets.pulses(), 1);
    if (stops) {
      EXPECT_EQ(scene.time.now_us(), 411'500 * MS);
    } else {
      EXPECT_EQ(scene.terminal.sent.back().at_us, 411'500 * MS);
      EXPECT_EQ(scene.sent(411), "port off standby stop");
    }
  }
}

TEST(ReceiverControl, AWrongRateIsSetRightAndTheFixesAreNotTrustedUntilThen) {
  const struct {
    unsigned configured, reported, set;
    int64_t drain_ms;
    double at;
  } rows[] = {{38400, 0, 38400, 30, 20},      {38400, 9600, 38400, 30, 400},  // after the sequence
              {9600, 1, 9600, 100, 20},       {57600, 115200, 57600, 3, 20},
              {115200, 38400, 115200, 8, 20}, {4800, 38400, 19200, 8, 20}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reported);
    auto answers = GOOD;
    answers["port"] = port(row.set);
    Scene scene(answers, {.hwversion = "zpt", .baud = row.configured});
    scene.comes(row.at, port(row.reported));
    scene.run(row.at + 40);
    EXPECT_EQ(scene.sent(row.at, row.at + 0.2), name(port(row.set)));
    EXPECT_THAT(scene.terminal.opens_us,
                ElementsAre(0, static_cast<int64_t>(row.at * S) + row.drain_ms * MS));
    EXPECT_EQ(scene.terminal.bauds.back(), row.set);
    EXPECT_THAT(scene.sentOn(topic::VP1_TX, row.at - 5, row.at), Each(Ne(NOT_AVAILABLE)));
    // A fix is trusted if the receiver was trusted when the previous fix left.
    EXPECT_THAT(scene.sentOn(topic::VP1_TX, row.at + 1, row.at + 3),
                ElementsAre(NOT_AVAILABLE, NOT_AVAILABLE));
    EXPECT_NE(scene.sentOn(topic::VP1_TX).back(), NOT_AVAILABLE);
  }
}

TEST(ReceiverControl, SilenceOfThreeSecondsIsALossAndOfFifteenWhileTheSequenceWorks) {
  const struct {
    bool hardware_init;
    double last_sentence_s, last_ubx_s, allowed_s;
  } rows[] = {{false, 5.3, 0, 3}, {false, 5.3, 9.5, 3}, {true, 400.3, 0, 3}, {true, 20.3, 0, 15}};
  for (const auto& row : rows) {
    Scene scene(GOOD, {.hardware_init = row.hardware_init});
    scene.at(row.last_sentence_s + 0.2, [&] {
      scene.epochs = false;
      scene.answers.clear();
    });
    for (int i = 1; i < row.last_ubx_s; ++i) scene.comes(i + 0.5, ubx(0x05, 0x01, bytes("06 13")));
    const double lost_s = std::max(row.last_sentence_s, row.last_ubx_s) + row.allowed_s;
    scene.run(lost_s + 60);
    const auto s = [&](size_t i) { return static_cast<double>(scene.terminal.opens_us.at(i)) / S; };
    EXPECT_GT(s(1), lost_s);
    EXPECT_LE(s(1), lost_s + 0.005);
    EXPECT_EQ(scene.sent(s(1), s(2)), row.hardware_init ? "port port port port" : "");  // five periods again
    if (row.hardware_init) continue;
    EXPECT_NEAR(s(2), s(1) + 3, 0.005);
  }
}

TEST(ReceiverControl, UtcThatTheReceiverCallsValidDatesAFixWithAWarning) {
  const struct {
    std::vector<std::string> time_utc;  ///< payloads, one after the other
    bool dated;
  } rows[] = {{{std::string(20, '\x04')}, true},
              {{std::string(20, '\xFB')}, false},
              {{std::string(19, '\x04')}, false},
              {{std::string(20, '\x04'), std::string(19, '\0')}, true},
              {{std::string(21, '\x04')}, true}};
  for (const auto& row : rows) {
    Scene scene(GOOD, {.hwversion = "zpt"});
    scene.epochs = false;
    for (const auto& payload : row.time_utc) scene.comes(0.5, ubx(0x01, 0x21, payload));
    scene.comes(1, nmea("GNRMC,123501.00,V,,,,,,,230326,,,N") + epoch(1, "GGA GSA GST"));
    EXPECT_EQ(scene.run(1.05).at(0).data.has_utc_time_us(), row.dated) << PrintToString(row.time_utc);
    EXPECT_THAT(scene.sentOn(topic::MODULE_ERROR), ElementsAre(NO));
  }
}

}  // namespace
