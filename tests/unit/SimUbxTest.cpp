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

const std::string NAV5 = "0624FFFF000300000000102700000500FA00FA0064005E01003C000000000000000000000000";
const std::string GNSS = "063E00202007";

TEST(SimUbx, AnswersPollsByteByByte) {
  const struct {
    const char* poll;
    Texts answers;
  } cases[] = {
      {"0600", {"060001000000D0080000009600000700030000000000", "05010600"}},
      {"060002", {"05000600"}},  // no UART 2
      {"0601F005", {"0601F005000000000000", "05010601"}},
      {"0608", {"0608E80301000100", "05010608"}},
      {"0613", {"06131B00F0B9", "05010613"}},
      {"0617", {"06170040000200000000000000010000000000000000", "05010617"}},
      {"0624", {NAV5, "05010624"}},
      {"063E",
       {GNSS + "000810000100010101010300010001010204080000000101030810000000010104000800000001030500030001000"
               "10506080E0001000101",
        "0501063E"}},
      {"0A28", {"0A28010F030303000000"}},
      {"0699", {"05000699"}},  // no such message
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
}

TEST(SimUbx, KeepsWhatIsPossibleAndRefusesTheRest) {
  const std::string auto_nav5 = "062401000400" + NAV5.substr(12);  // dynamic model alone
  const struct {
    std::string set, kept;  // kept: what a poll tells afterwards; empty: refused
  } cases[] = {
      {"0608C80001000000", "0608C80001000000"},
      {"0608630001000100", ""},  // faster than 100 ms
      {"06110001", "06110001"},
      {"06130E00F039", "06130E00F0B9"},  // the pins without their bit
      {"06131F00E0B9", "06131F00E0B9"},
      {"06170F41000200000000000000010000000000000000", "06170F41000200000000000000010000000000000000"},
      {auto_nav5, "0624FFFF0403" + NAV5.substr(12)},
      {"0624FFFF0B03" + NAV5.substr(12), ""},
      {"060001000000C0080000019600000700030000000000", ""},  // 38401 baud
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
      {block(6, false), 1, "GP1"},  {block(0, false) + block(1, false) + block(5, false), 2, "GL1"},
      {block(2, true), 0xB, "GN3"}, {block(3, true), -1, ""},  // two bands beside that of GPS
      {block(0, false), -1, ""},                               // augmentation without GPS
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
