#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sim/gnss/Messages.h"
#include "sim/gnss/Receiver.h"
#include "sim/gnss/UbxText.h"
#include "sim/gnss/Utc.h"
#include "support/Frames.h"

namespace ecu::koru::sim {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Texts = std::vector<std::string>;

std::string bytes_of(const std::string& digits) {
  std::string bytes;
  for (size_t i = 0; i < digits.size(); i += digits[i] == ' ' ? 1 : 2)
    if (digits[i] != ' ') bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

std::string digits_of(const std::string& bytes) {
  std::string digits;
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    digits += {"0123456789ABCDEF"[byte >> 4U], "0123456789ABCDEF"[byte & 15U]};
  }
  return digits;
}

/// "0600 01 00": class, id and payload in hexadecimal, blanks anywhere.
std::string frame_of(const std::string& digits) {
  const std::string bytes = bytes_of(digits);
  return test::ubx(static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1]), bytes.substr(2));
}

/// The host's end of a receiver: sends commands and takes apart what comes.
struct Host {
  explicit Host(const ReceiverOptions& options = {}) : receiver(options) {}
  explicit Host(const std::string& faults) : Host(with_faults(faults)) {}
  static ReceiverOptions with_faults(const std::string& faults) {
    ReceiverOptions options;
    options.faults = parse_faults(faults);
    return options;
  }

  void write(const std::string& bytes) {
    receiver.write({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  }
  std::string read_until(int64_t until_us) {
    receiver.advance_to(now_us = until_us);
    std::string bytes(receiver.available(), '\0');
    receiver.read({reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()});
    return bytes;
  }
  /// Lets time pass; every byte must belong to a sentence or to a UBX message with a right checksum.
  void listen(int64_t for_us) {
    rest += read_until(now_us + for_us);
    sentences.clear();
    frames.clear();
    while (!rest.empty()) {
      const bool sentence = rest[0] == '$';
      const size_t feed = rest.find("\r\n");
      const size_t size = sentence ? feed : rest.size() < 6 ? 6 : 8U + low(4) + 256U * low(5);
      if (size > rest.size() - (sentence ? 2 : 0)) return;  // its end comes later
      if (sentence) {
        sentences.push_back(rest.substr(0, size));
      } else {
        frames.push_back(digits_of(rest.substr(2, 2) + rest.substr(6, size - 8)));
        ASSERT_EQ(digits_of(rest.substr(0, size)), digits_of(frame_of(frames.back())));
      }
      rest.erase(0, size + (sentence ? 2 : 0));
    }
  }
  [[nodiscard]] size_t low(size_t at) const { return static_cast<uint8_t>(rest[at]); }
  /// What answers a command within half a second of silence.
  Texts ask(const std::string& digits, int64_t for_us = 500'000) {
    write(frame_of(digits));
    listen(for_us);
    return frames;
  }
  /// The kinds of what came, without the talkers, such as "RMC GGA GSA GSA GST".
  [[nodiscard]] std::string kinds() const {
    std::string all;
    for (const std::string& sentence : sentences) all += (all.empty() ? "" : " ") + sentence.substr(3, 3);
    return all;
  }

  Receiver receiver;
  int64_t now_us = 0;
  std::string rest;
  Texts sentences, frames;
};

/// Nothing comes by itself, so that answers stand alone.
ReceiverOptions silent() {
  ReceiverOptions options = Host::with_faults("silence=99.9@100");
  options.utc_start_us += 100'000;
  return options;
}

TEST(SimUbx, FindsFramesInAnyStream) {
  const std::string poll = bytes_of("B562 0600 0000 0618");
  const struct {
    std::string bytes;
    int intact, wrong;
  } cases[] = {
      {poll + poll, 2, 0},
      {"$GNRMC,\xB5" + poll + "x", 1, 0},
      {"\xB5\xB5" + poll, 1, 0},
      {bytes_of("B562 0600 0000 0619"), 0, 1},
      {bytes_of("B562 0600 0500") + poll + "abcde", 1, 1},  // a false beginning swallows and gives back
      {bytes_of("B562 0600 0102") + poll, 1, 0},            // longer than any command
      {poll.substr(0, 7), 0, 0},
  };
  for (const auto& c : cases) {
    UbxFramer framer;
    int intact = 0, wrong = 0;
    for (const char byte : c.bytes) {
      framer.add(static_cast<uint8_t>(byte));
      while (const auto found = framer.next()) ++(found->intact ? intact : wrong);
    }
    EXPECT_EQ(intact, c.intact) << digits_of(c.bytes);
    EXPECT_EQ(wrong, c.wrong) << digits_of(c.bytes);
  }
  EXPECT_EQ(digits_of(encode({ubx::ack_ack, {6, 0}})), "B5620501020006000E37");
}

const std::string NAV5 = "0624FFFF000300000000102700000500FA00FA0064005E01003C000000000000000000000000";
const std::string GNSS = "063E00202007";

TEST(SimUbx, AnswersPollsByteByByte) {
  const struct {
    const char* poll;
    Texts answers;
  } cases[] = {
      {"0600", {"060001000000D0080000009600000700030000000000", "05010600"}},
      {"060004", {"06000400000000000000000000000700030000000000", "05010600"}},
      {"060002", {"05000600"}},  // no UART 2
      {"0601F005", {"0601F005000000000000", "05010601"}},
      {"0601F004", {"0601F004010100010100", "05010601"}},
      {"06010A77", {"05000601"}},
      {"0608", {"0608E80301000100", "05010608"}},
      {"0611", {"06110000", "05010611"}},
      {"0613", {"06131B00F0B9", "05010613"}},
      {"0617", {"06170040000200000000000000010000000000000000", "05010617"}},
      {"0624", {NAV5, "05010624"}},
      {"063E",
       {GNSS + "000810000100010101010300010001010204080000000101030810000000010104000800000001030500030001000"
               "10506080E0001000101",
        "0501063E"}},
      {"0A28", {"0A28010F030303000000"}},
      {"0699", {"05000699"}},  // no such message
      {"060801", {"05000608"}},
      {"0A99", {}},
      {"0107", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(Host(silent()).ask(c.poll), c.answers) << c.poll;

  Host host(silent());
  EXPECT_THAT(host.ask("0A04"), ElementsAre(StartsWith("0A04" + digits_of("ROM CORE 3.01"))));
  EXPECT_EQ(host.frames[0].size(), 2 * (2 + 40 + 4 * 30U));
  EXPECT_THAT(host.ask("0A09"), ElementsAre(testing::SizeIs(2 * (2 + 60))));
  host.write(bytes_of("B562 0600 0000 0619"));  // wrong checksum: not a word
  host.listen(second_us);
  EXPECT_THAT(host.frames, IsEmpty());
  EXPECT_EQ(host.receiver.statistics().frames_corrupted, 1U);
  host.write(bytes_of("B562 0600 00"));  // half of one, given up
  host.listen(1'500'000);
  EXPECT_EQ(host.ask("0A28").size(), 1U);
}

TEST(SimUbx, KeepsWhatIsPossibleAndRefusesTheRest) {
  const std::string auto_nav5 = "062401000400" + NAV5.substr(12);  // dynamic model alone
  const struct {
    std::string set, kept;  // kept: what a poll tells afterwards; empty: refused
  } cases[] = {
      {"0608C80001000000", "0608C80001000000"},
      {"0608630001000100", ""},  // faster than 100 ms
      {"0608E80300000100", ""},
      {"06110001", "06110001"},
      {"06110005", ""},
      {"06130E00F039", "06130E00F0B9"},  // the pins without their bit
      {"06131F00E0B9", "06131F00E0B9"},
      {"06130E00", ""},
      {"06170F41000200000000000000010000000000000000", "06170F41000200000000000000010000000000000000"},
      {"06170023000200000000000000010000000000000000", ""},
      {auto_nav5, "0624FFFF0403" + NAV5.substr(12)},
      {"0624FFFF0B03" + NAV5.substr(12), ""},
      {"060001000000C0080000019600000700030000000000", ""},  // 38401 baud
      {"060001000000C0000000009600000700030000000000", ""},  // with parity
      {"0601020102", ""},
  };
  for (const auto& c : cases) {
    Host host(silent());
    const std::string id = c.set.substr(0, 4);
    const std::string before = host.ask(id).at(0);
    EXPECT_THAT(host.ask(c.set), ElementsAre((c.kept.empty() ? "0500" : "0501") + id)) << c.set;
    EXPECT_EQ(host.ask(id).at(0), c.kept.empty() ? before : c.kept) << c.set;
  }
}

/// One block of CFG-GNSS.
std::string block(int id, bool on) {
  return "0" + std::to_string(id) + "041000" + (on ? "01" : "00") + "000101";
}

TEST(SimUbx, UsesTheSystemsThatItIsTold) {
  const struct {
    std::string blocks;  // of 0 GPS, 1 SBAS, 2 Galileo, 3 BeiDou, 5 QZSS, 6 GLONASS
    int enabled;         // as in MON-GNSS; -1: refused
    const char* burst;   // talker and number of GSA
  } cases[] = {
      {block(6, false), 1, "GP1"},
      {block(0, false) + block(1, false) + block(5, false), 2, "GL1"},
      {block(2, true), 0xB, "GN3"},
      {block(6, false) + block(3, true), 5, "GN2"},
      {block(3, true), -1, ""},                     // two bands beside that of GPS
      {block(0, false), -1, ""},                    // augmentation without GPS
      {block(6, false) + block(0, false), -1, ""},  // nothing left
      {block(7, true), -1, ""},                     // no such system
  };
  for (const auto& c : cases) {
    Host host;
    host.listen(500'000);
    const std::string count = "0" + std::to_string(c.blocks.size() / 16);
    const bool refused = c.enabled < 0;
    EXPECT_THAT(host.ask("063E0020FF" + count + c.blocks), ElementsAre(refused ? "0500063E" : "0501063E"))
        << c.blocks;
    EXPECT_EQ(host.ask("0A28").at(0).substr(10, 2),
              "0" + std::string(1, "0123456789AB"[refused ? 3 : c.enabled]));
    host.listen(second_us);
    if (!refused) {
      EXPECT_EQ(host.sentences.at(0).substr(1, 2), std::string(c.burst).substr(0, 2)) << c.blocks;
      EXPECT_EQ(host.sentences.size(), 3U + static_cast<size_t>(c.burst[2] - '0')) << c.blocks;
    }
  }
}

TEST(SimUbx, AnswersBetweenSentencesAtThePaceOfTheLine) {
  ReceiverOptions options;
  options.power_up_defaults = true;  // at 9600 a burst takes 0.7 s
  Host host(options);
  host.receiver.advance_to(200'000);
  for (int i = 0; i < 3; ++i) host.write(frame_of("0600"));
  host.rest = host.read_until(1'900'000);
  EXPECT_GT(host.rest.find('\xB5'), host.rest.find("GLL"));
  EXPECT_LT(host.rest.rfind('\xB5'), host.rest.rfind("RMC"));
  host.listen(0);
  EXPECT_EQ(host.kinds(),
            "RMC VTG GGA GSA GSA GSV GSV GSV GSV GSV GLL "
            "RMC VTG GGA GSA GSA GSV GSV GSV GSV GSV GLL");
  EXPECT_EQ(host.frames.size(), 6U);
}

TEST(SimUbx, ChangesItsSpeedBehindTheAnswer) {
  for (const auto& [baud, digits] :
       {std::pair(9600U, "80250000"), {57600U, "00E10000"}, {115200U, "00C20100"}}) {
    Host host;
    host.listen(90'000);  // in the middle of a burst
    host.write(frame_of("060001000000C0080000" + std::string(digits) + "0700030000000000"));
    host.listen(400'000);
    EXPECT_THAT(host.frames, ElementsAre("05010600"));
    EXPECT_EQ(host.receiver.baud(), baud);
    host.write(frame_of("0A28"));  // nobody understands anybody
    EXPECT_THAT(host.read_until(2 * second_us), Not(HasSubstr("GNRMC")));
    EXPECT_EQ(host.receiver.statistics().frames_received, 1U);
    host.receiver.set_host_baud(baud);
    host.read_until(2'600'000);
    EXPECT_THAT(host.ask("0600", 400'000), ElementsAre(HasSubstr(digits), "05010600"));
  }
}

TEST(SimUbx, SwitchesMessages) {
  ReceiverOptions options;
  options.utc_start_us = *parse_iso8601("2026-02-03T04:05:06.25Z");
  options.baud = 115200;
  options.rate_hz = 4;
  Host host(options);
  for (const char* set : {"0601F00501", "0601F0010001000001", "0601F001000100000100", "0601F006000100000000",
                          "0601F008000100000100", "0601F00300", "06010121000100000000",
                          "06010A09000200000000", "0601F007000000000000", "0601F00D000100000100"})
    host.write(frame_of(set));
  host.listen(50'000);
  EXPECT_EQ(std::count(host.frames.begin(), host.frames.end(), "05000601"),
            2);  // 7 bytes, and no such sentence
  host.listen(500'000);
  EXPECT_EQ(host.kinds(), "RMC VTG GGA GSA GSA GLL GRS GRS ZDA RMC VTG GGA GSA GSA GLL GRS GRS ZDA");
  ASSERT_EQ(host.frames.size(), 3U);
  // 2026-02-03 is a Tuesday: 187506.25 s and 18 leap seconds into the week.
  EXPECT_EQ(host.frames[0], "01219A642D0B1900000080B2E60EEA07020304050637");
  EXPECT_THAT(host.frames[1], StartsWith("0A09"));
  EXPECT_THAT(host.frames[2], StartsWith("0121"));
  EXPECT_THAT(host.sentences[0], StartsWith("$GNRMC,040506.25,A"));
  EXPECT_THAT(host.sentences[8], StartsWith("$GNZDA,040506.25,03,02,2026,00,00*"));
  EXPECT_THAT(host.ask("0121"), Contains(StartsWith("0121")));  // the host's own poll
}

TEST(SimUbx, WritesTheOtherSentences) {
  Fix fix;
  fix.utc_us = *parse_iso8601("2026-12-31T23:59:59.5Z");
  fix.latitude_deg = 48.5, fix.longitude_deg = -11.25;
  fix.speed_kmh = 18.52;
  fix.course_deg = 77.52;
  SentenceSet kinds;
  for (const Sentence kind : {Sentence::vtg, Sentence::gll, Sentence::grs})
    kinds.set(static_cast<size_t>(kind));
  const SentenceOptions options{{Constellation::glonass}, NmeaVersion::v4_10, false};
  auto sent = epoch_sentences(fix, options, kinds);
  EXPECT_THAT(sent, ElementsAre(StartsWith("$GLVTG,77.52,T,,M,10.000,N,18.520,K,A*"),
                                StartsWith("$GLGLL,4830.00000,N,01115.00000,W,235959.50,A,A*"),
                                testing::ContainsRegex("^\\$GLGRS,235959.50,1(,-?[01]\\.[0-9])+,+2,0\\*")));
  EXPECT_EQ(std::count(sent[2].begin(), sent[2].end(), ','), 16);
  fix.valid = false;
  sent = epoch_sentences(fix, options, kinds);
  EXPECT_THAT(sent, ElementsAre(StartsWith("$GLVTG,,,,,,,,,N*"), StartsWith("$GLGLL,,,,,235959.50,V,N*"),
                                StartsWith("$GLGRS,235959.50,1,,,,,,,,,,,,,2,0*")));
}

TEST(SimUbx, ChangesItsRateWithoutLosingAnEpoch) {
  Host host;
  host.listen(second_us + 50'000);  // the epoch of 1.0 is solved, its burst not begun
  EXPECT_EQ(host.ask("0608E80301000100", 1'000'000).size(), 1U);
  EXPECT_THAT(host.sentences, Contains(StartsWith("$GNRMC,000001.00")));
  EXPECT_EQ(host.ask("0608FA0001000100", 1'000'000).size(), 1U);
  for (const char* epoch : {"02.00", "02.25", "02.50", "02.75"})
    EXPECT_THAT(host.sentences, Contains(HasSubstr("RMC,0000" + std::string(epoch)))) << epoch;
  host.ask("0608E80302000100", 5'000'000);  // every second cycle of 1 s
  EXPECT_EQ(host.kinds(), "RMC GGA GSA GSA GST RMC GGA GSA GSA GST");
}

TEST(SimUbx, KeepsWhatWasSavedOverPowerCycles) {
  const std::string ports = "01000000", messages = "02000000", antenna = "00040000", none = "00000000";
  const struct {
    const char* reset_to;
    std::string save;  // sections and devices
    const char* antenna_flags;
    unsigned baud;
    bool power;  // else the reset line
    bool gst, vtg;
  } cases[] = {
      {"", none + "07", "1B00", 38400, true, true, false},
      {"", ports + "07", "1B00", 57600, true, true, false},
      {"", "FFFFFFFF07", "0E00", 57600, false, false, false},
      {"9600", none + "07", "1B00", 9600, true, false, true},    // as new
      {"9600", none + "07", "1B00", 38400, false, true, false},  // the battery keeps the options' settings
      {"9600", ports + "01", "1B00", 9600, true, false, true},   // and there is none during a power cycle
      {"9600", antenna + "07", "0E00", 9600, true, false, true},
      {"9600", messages + "02", "1B00", 9600, true, false, false},
  };
  for (const auto& c : cases) {
    Host host(c.reset_to[0] != 0 ? "reset-to=" + std::string(c.reset_to) : "seed=1");
    host.listen(300'000);
    host.ask("0601F007000000000000");  // GST off
    host.ask("06130E00F0B9");
    host.ask("060001000000C008000000E100000700030000000000");
    host.receiver.set_host_baud(57600);
    EXPECT_THAT(host.ask("060900000000" + c.save.substr(0, 8) + none + c.save.substr(8)),
                Contains("05010609"));
    c.power ? host.receiver.power_cycle(host.now_us) : host.receiver.hardware_reset(host.now_us);
    EXPECT_FALSE(host.receiver.running());
    EXPECT_EQ(host.receiver.baud(), 57600U);  // until it starts
    host.read_until(host.now_us + 400'000);
    EXPECT_EQ(host.receiver.baud(), c.baud) << c.save;
    host.receiver.set_host_baud(c.baud);
    EXPECT_THAT(host.ask("0613", 2'700'000), Contains("0613" + std::string(c.antenna_flags) + "F0B9"));
    EXPECT_EQ(host.kinds().find("GST") != std::string::npos, c.gst) << c.save << c.power;
    EXPECT_EQ(host.kinds().find("VTG") != std::string::npos, c.vtg) << c.save << c.power;
  }
  Host host;  // clear and load: as from the factory, but at its own speed until the line has drained
  EXPECT_THAT(host.ask("0609FFFFFFFF00000000FFFFFFFF07", 60'000), Contains("05010609"));
  EXPECT_EQ(host.receiver.baud(), 9600U);
}

TEST(SimUbx, WatchesTheAntenna) {
  const struct {
    AntennaState state;
    bool inverted, fix;
    int flags;
    int status, power;
  } cases[] = {
      {AntennaState::ok, true, true, 0x1F, 4, 1},
      {AntennaState::open, true, false, 0x1F, 2, 1},
      {AntennaState::ok, false, true, 0x1F, 2, 1},
      {AntennaState::open, false, false, 0x1F, 4, 1},
      {AntennaState::open, true, false, 0x1B, 2, 1},  // not looked for
      {AntennaState::short_circuit, true, false, 0x1F, 3, 0},
      {AntennaState::short_circuit, true, false, 0x07, 3, 1},
      {AntennaState::ok, true, false, 0x0E, 1, 0},
  };
  for (const auto& c : cases) {
    ReceiverOptions options;
    options.antenna_inverted = c.inverted;
    Host host(options);
    host.receiver.set_antenna(c.state);
    host.ask("0613" + digits_of({static_cast<char>(c.flags), 0}) + "F0B9", 900'000);
    EXPECT_THAT(host.ask("0A09").at(0).substr(4 + 2 * 20, 4),
                "0" + std::to_string(c.status) + "0" + std::to_string(c.power))
        << c.flags;
    EXPECT_EQ(host.sentences.at(0).find(",A,") != std::string::npos, c.fix) << c.flags;
  }
  for (const bool recovers : {true, false}) {  // from a short circuit that is gone
    Host host("antenna=short@1,antenna=ok@2");
    host.ask(recovers ? "06131F00F0B9" : "06130F00F0B9", 1'500'000);
    EXPECT_THAT(host.ask("0A09").at(0).substr(44, 4), "0300");
    host.listen(second_us);
    EXPECT_THAT(host.ask("0A09").at(0).substr(44, 4), recovers ? "0401" : "0300");
  }
}

TEST(SimUbx, StopsSleepsAndStarts) {
  Host host;
  EXPECT_THAT(host.ask("060400000800", 900'000), IsEmpty());  // no acknowledgement
  host.listen(5 * second_us);
  EXPECT_EQ(host.kinds(), "");
  EXPECT_EQ(host.ask("0A28").size(), 1U);  // but it talks
  host.ask("060400000900", 2'900'000);
  EXPECT_THAT(host.kinds(), StartsWith("RMC GGA"));

  const std::string forever = "024100000000000000000600000000000000";
  host.ask(forever, 90'000);
  EXPECT_FALSE(host.receiver.running());
  EXPECT_THAT(host.ask("0A28", 5 * second_us), IsEmpty());
  EXPECT_EQ(host.receiver.next_byte_us(), INT64_MAX);
  EXPECT_FALSE(host.receiver.finished());
  host.receiver.hardware_reset(host.now_us);
  host.listen(2 * second_us);
  EXPECT_THAT(host.kinds(), StartsWith("RMC GGA"));
  for (const std::string how : {"0241E803000002000000",                     // for a second
                                "024100000000000000000600000008000000"}) {  // until a byte comes
    host.ask(how, 100'000);
    EXPECT_FALSE(host.receiver.running());
    host.ask("0A28", 1'200'000);
    EXPECT_TRUE(host.receiver.running());
  }
  host.ask("060400000000", 100'000);
  EXPECT_FALSE(host.receiver.running());  // for 0.3 s
  EXPECT_EQ(host.receiver.statistics().power_ups, 4U);
}

TEST(SimUbx, FailsAsItIsTold) {
  Host refuses("nak=0624,nak=0A28");
  EXPECT_THAT(refuses.ask("0624"), ElementsAre("05000624"));
  EXPECT_THAT(refuses.ask("0A28"), ElementsAre("05000A28"));
  EXPECT_EQ(refuses.ask("0608").size(), 2U);
  EXPECT_THAT(Host("nak=all").ask("060001000000C0080000802500000700030000000000"), ElementsAre("05000600"));

  Host next("newer");
  EXPECT_THAT(next.ask("063E"), ElementsAre("0500063E"));
  EXPECT_EQ(next.ask("0600").size(), 2U);
  EXPECT_THAT(next.ask("0A09"), IsEmpty());

  Host mute("mute");
  EXPECT_THAT(mute.ask("0600"), IsEmpty());
  EXPECT_EQ(mute.kinds(), "RMC GGA GSA GSA GST");
  mute.receiver.set_mute(false);
  EXPECT_EQ(mute.ask("0600").size(), 2U);

  Host late("late=3000");
  late.listen(200'000);
  EXPECT_THAT(late.ask("0600", 2'990'000), IsEmpty());
  late.listen(200'000);
  EXPECT_EQ(late.frames.size(), 2U);

  Host loses("lose=0.5");
  size_t answered = 0;
  for (int i = 0; i < 400; ++i) answered += loses.ask("0A28", 100'000).size();
  EXPECT_NEAR(static_cast<double>(answered), 200, 40);
  EXPECT_EQ(loses.receiver.statistics().frames_lost, 400 - answered);

  Host garbage("garbage-ubx=0.5");  // listen() looks at every frame
  garbage.listen(100 * second_us);
  EXPECT_NEAR(static_cast<double>(garbage.frames.size()), 250, 50);
  EXPECT_EQ(garbage.sentences.size(), 500U);

  Host cycles("power-cycle@2.5,power-cycle@4.5");
  cycles.listen(7 * second_us);
  EXPECT_EQ(cycles.receiver.statistics().power_ups, 3U);

  for (const char* text : {"mute=1", "nak", "nak=624", "nak=06240", "nak=xyzz", "late=-1", "late=60001",
                           "lose=2", "power-cycle=5", "power-cycle@", "power-cycle@-1", "reset-to=9601",
                           "antenna=lost", "antenna=ok@x", "newer,newer", "garbage-ubx=nan"})
    EXPECT_THROW((void)parse_faults(text), std::invalid_argument) << text;
}

TEST(SimUbx, SurvivesAHostThatNeverStops) {
  ReceiverOptions options;
  options.baud = 4800;
  Host host(options);
  std::string flood;
  for (int i = 0; i < 4000; ++i) flood += frame_of("0A04");
  host.receiver.set_host_baud(4800);
  for (int i = 0; i < 10; ++i) host.write(flood);
  host.listen(100 * second_us);
  const Statistics s = host.receiver.statistics();
  EXPECT_LE(s.frames_received, 65536U / 8);
  EXPECT_GT(s.frames_lost, 3 * s.frames_sent);
  EXPECT_GT(s.sentences_overrun, s.sentences_sent);

  Random random(5);
  for (int i = 0; i < 50; ++i) {
    std::string noise(1000, '\0');
    for (char& c : noise) c = static_cast<char>(random.below(256));
    host.write(noise);
    host.read_until(host.now_us + 3 * second_us);
  }
  EXPECT_TRUE(host.receiver.running());
}

TEST(SimUbx, DescribesFramesForPeople) {
  const struct {
    const char *frame, *text;
  } cases[] = {
      {"0600", "CFG-PRT poll 06 00 len 0"},
      {"05010600", "ACK-ACK of CFG-PRT 05 01 len 2: 06 00"},
      {"0601F0030001", "CFG-MSG GSV every 1 06 01 len 4: F0 03 00 01"},
      {"06010A09", "CFG-MSG poll MON-HW 06 01 len 2: 0A 09"},
      {"0677AB", "0x0677 06 77 len 1: AB"},
      {"060404", "CFG-RST mode 0 06 04 len 1: 04"},
  };
  for (const auto& c : cases) {
    const std::string bytes = bytes_of(c.frame);
    const UbxFrame frame{{static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1])},
                         {bytes.begin() + 2, bytes.end()}};
    EXPECT_EQ(describe(frame), c.text);
  }
  ReceiverOptions options = Host::with_faults("garbage-ubx=1");
  Faults faults(options.faults);
  for (int i = 0; i < 2000; ++i)
    for (const char c : describe(*faults.garbage())) ASSERT_TRUE(c >= 0x20 && c < 0x7F);
}

}  // namespace
}  // namespace ecu::koru::sim
