#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "sim/gnss/Messages.h"
#include "unit/SimUbxHost.h"

namespace ecu::koru::sim {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

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
  host.write(bytes_of("B562 0600 1000"));  // the beginning of one, given up
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
      {"0021210001000101", -1, ""},                 // more channels than there are
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

TEST(SimUbx, UsesNoMoreSystemsAtOnceThanItCan) {
  ReceiverOptions options;
  options.simultaneous = 1;
  options.supported = {Constellation::gps, Constellation::glonass};
  EXPECT_THAT(Host(options).ask("063E0020FF01" + block(0, true)), Contains("0500063E"));
  EXPECT_THAT(Host(options).ask("063E0020FF01" + block(6, false)), Contains("0501063E"));
  options.simultaneous = 3;
  EXPECT_THAT(Host(options).ask("063E0020FF01" + block(2, true)), Contains("0500063E"));
  EXPECT_EQ(Host(options).ask("0A28").at(0), "0A280103030303000000");
}

TEST(SimUbx, KeepsToTheProtocolsOfThePort) {
  const auto port = [](const std::string& in, const std::string& out) {
    return "060001000000C008000000960000" + in + "00" + out + "0000000000";
  };
  Host host;
  host.ask("060004000000C0080000000000000000000000000000", 1'500'000);  // another one: nothing changes
  EXPECT_EQ(host.kinds(), "RMC GGA GSA GSA GST RMC GGA GSA GSA GST");
  host.ask("0601012101");
  EXPECT_THAT(host.ask(port("07", "01"), 3 * second_us), Contains(StartsWith("0121")));
  EXPECT_EQ(host.kinds(), "");
  EXPECT_THAT(host.ask(port("07", "02"), 3 * second_us), ElementsAre("05010600"));
  EXPECT_THAT(host.ask("0A28", 2 * second_us), IsEmpty());
  EXPECT_THAT(host.kinds(), StartsWith("RMC"));
  host.ask(port("02", "03"));  // from now on deaf
  EXPECT_THAT(host.ask("0601F00700", 2 * second_us), testing::Each(StartsWith("0121")));
  EXPECT_THAT(host.kinds(), HasSubstr("GST"));
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

TEST(SimUbx, HoldsEverythingBackUntilTheOldSpeedHasDrained) {
  ReceiverOptions options;
  options.power_up_defaults = true;
  Host host(options);
  host.listen(850'000);
  for (const char* command : {"0A04", "0A04", "0A04", "0A04", "060001000000C008000000C201000700030000000000"})
    host.write(frame_of(command));
  host.listen(200'000);
  host.write(frame_of("0A28"));
  Texts at_9600;
  while (host.receiver.baud() == 9600) {
    host.listen(20);  // less than a byte takes
    at_9600.insert(at_9600.end(), host.frames.begin(), host.frames.end());
    EXPECT_EQ(host.kinds(), "");
  }
  EXPECT_EQ(at_9600.back(), "05010600");
  EXPECT_GT(host.now_us, 1'500'000);
  host.receiver.set_host_baud(115200);
  host.listen(200'000);
  EXPECT_THAT(host.frames, Contains(StartsWith("0A28")));
  EXPECT_THAT(host.kinds(), StartsWith("RMC VTG GGA"));
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

TEST(SimUbx, OnSpiTheHostClocksAndTheLineTellsAsThePortIsSet) {
  ReceiverOptions options = silent();
  options.spi = true;
  Receiver receiver(options);
  const auto exchange = [&](std::string sent, int64_t at_us, size_t size) {
    sent.resize(size, '\xFF');
    std::string got(size, '\0');
    receiver.advance_to(at_us);
    receiver.transfer({reinterpret_cast<const uint8_t*>(sent.data()), size},
                      {reinterpret_cast<uint8_t*>(got.data()), size});
    return got;
  };
  const struct {
    const char* set;        // txReady of the port, as on the wire
    bool idle, one_answer;  // levels: with nothing to say, with 10 bytes
  } rows[] = {{"0000", true, true},  {"1B00", true, false}, {"1900", false, true},
              {"9B00", true, false}, {"1B01", true, true},  {"1901", false, false}};
  const std::string acknowledged = frame_of("05010600");
  int64_t now_us = 0;
  for (const auto& row : rows) {
    const std::string port = "0600 0400" + std::string(row.set) + "00000000000000000700030000000000";
    exchange(frame_of(port), now_us += 10'000, 28);
    EXPECT_EQ(exchange("", now_us += 10'000, 12), acknowledged + "\xFF\xFF");
    EXPECT_EQ(receiver.tx_ready_level(), row.idle) << row.set;
    exchange(frame_of("0699"), now_us += 10'000, 8);  // refused in 10 bytes
    receiver.advance_to(now_us += 10'000);
    EXPECT_EQ(receiver.tx_ready_level(), row.one_answer) << row.set;
    exchange("", now_us, 9);  // active until everything is fetched
    EXPECT_EQ(receiver.tx_ready_level(), row.one_answer) << row.set;
    exchange("", now_us, 1);
    EXPECT_EQ(receiver.tx_ready_level(), row.idle) << row.set;
  }
  exchange(frame_of("0600"), now_us += 10'000, 8);
  EXPECT_EQ(exchange("", now_us += 10'000, 28), frame_of("0600 0400190100000000000000000700030000000000"));
}

}  // namespace
}  // namespace ecu::koru::sim
