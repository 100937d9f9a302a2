#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "sim/gnss/Receiver.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

using Fields = std::vector<std::string>;

std::string read_all(Receiver& receiver) {
  std::string text;
  uint8_t block[100];
  while (const size_t count = receiver.read(block)) text.append(block, block + count);
  return text;
}

/// Cuts a stream into sentences; anything that is not whole sentences with right checksums is a failure.
std::vector<Fields> sentences_in(const std::string& text) {
  std::vector<Fields> sentences;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find("\r\n", at);
    const size_t star = text.rfind('*', end);
    if (end == std::string::npos || text[at] != '$' || star != end - 3) {
      ADD_FAILURE() << "no sentence at " << at << ": " << text.substr(at, 90);
      return sentences;
    }
    const std::string body = text.substr(at + 1, star - at - 1);
    const int sum = std::accumulate(body.begin(), body.end(), 0, [](int all, char c) { return all ^ c; });
    EXPECT_EQ(std::stoi(text.substr(star + 1, 2), nullptr, 16), sum) << body;
    Fields fields(1);
    for (const char c : body) c == ',' ? fields.emplace_back() : (fields.back() += c, fields.back());
    sentences.push_back(fields);
    at = end + 2;
  }
  return sentences;
}

std::vector<Fields> run(Receiver& receiver, int64_t until_us) {
  receiver.advance_to(until_us);
  return sentences_in(read_all(receiver));
}

TEST(SimSentences, AreWrittenAsReceiversWriteThem) {
  Fix fix;
  fix.utc_us = *parse_iso8601("2026-12-31T23:59:59.999Z");  // to hundredths that is the next year
  fix.latitude_deg = -(7 + 59.999996 / 60);                 // and these are full degrees
  fix.longitude_deg = -122.5;
  fix.altitude_m = -0.04;
  fix.speed_kmh = 1.852;
  fix.course_deg = 359.996;
  fix.satellites = 7;
  fix.pdop = 1.949, fix.hdop = 1.18, fix.vdop = 1.54;
  fix.latitude_error_m = 2.5, fix.longitude_error_m = 3.14, fix.altitude_error_m = 10;
  SentenceOptions options{{Constellation::galileo}, NmeaVersion::v4_10, false};
  using testing::HasSubstr;
  using testing::StartsWith;
  const auto sent = epoch_sentences(fix, options);
  ASSERT_EQ(sent.size(), 4U);
  EXPECT_THAT(sent[0], StartsWith("$GARMC,000000.00,A,0800.00000,S,12230.00000,W,1.000,0.00,010127,,,A,V*"));
  EXPECT_THAT(sent[1], StartsWith("$GAGGA,000000.00,0800.00000,S,12230.00000,W,1,07,1.18,0.0,M,47.6,M,,*"));
  EXPECT_THAT(sent[2], testing::ContainsRegex("^\\$GAGSA,A,3,[0-9,]*,1.95,1.18,1.54,3\\*"));
  EXPECT_THAT(sent[3], StartsWith("$GAGST,000000.00,4.0,,,,2.5,3.1,10.0*"));

  fix.valid = false;
  fix.utc_us = *parse_iso8601("2026-01-02T03:04:05.25Z");
  options = {{Constellation::gps, Constellation::glonass}, NmeaVersion::v4_0, true};
  EXPECT_THAT(
      epoch_sentences(fix, options),
      testing::ElementsAre(StartsWith("$GNRMC,030405.25,V,,,,,,,020126,,,N*"),
                           StartsWith("$GNGGA,030405.25,,,,,0,00,99.99,,,,,,*"),
                           StartsWith("$GNGSA,A,1,,,,,,,,,,,,,99.99,99.99,99.99*"), HasSubstr("GNGSA"),
                           StartsWith("$GPGSV,1,1,00*79\r\n"), StartsWith("$GLGSV,1,1,00*65\r\n"),
                           StartsWith("$GNGST,030405.25,,,,,,,*")));
  EXPECT_EQ(nmea_checksum("GPRMC,083559.00,A,4717.11437,N,00833.91522,E,0.004,77.52,091202,,,A"), 0x57);
}

TEST(SimReceiver, KeepsTheTimingOfTheLine) {
  for (const unsigned baud : receiver_bauds) {
    ReceiverOptions options;
    options.baud = baud;
    Receiver receiver(options);
    size_t bytes = 0;
    for (int64_t next = receiver.next_byte_us(); next < second_us; next = receiver.next_byte_us()) {
      receiver.advance_to(next - 1);
      EXPECT_EQ(receiver.available(), bytes);
      receiver.advance_to(next);
      ASSERT_EQ(receiver.available(), ++bytes);
      EXPECT_NEAR(static_cast<double>(next - options.output_delay_us),
                  1e7 / baud * static_cast<double>(bytes), 1.0);
    }
    EXPECT_EQ(run(receiver, second_us).back()[0], "GNGST");
    EXPECT_EQ(receiver.next_byte_us(),
              second_us + options.output_delay_us + static_cast<int64_t>(std::ceil(1e7 / baud)));
  }
}

TEST(SimReceiver, IsGarbageAtAnotherSpeed) {
  const struct {
    unsigned own, host;
    double least, most;  // bytes heard for one sent
  } cases[] = {
      {38400, 19200, 0.3, 0.7}, {38400, 4800, 0.05, 0.2}, {9600, 19200, 1.0, 2.0}, {9600, 115200, 1.5, 5.0}};
  for (const auto& c : cases) {
    ReceiverOptions options;
    options.baud = c.own;
    Receiver receiver(options);
    receiver.set_host_baud(c.host);
    receiver.advance_to(10 * second_us);
    const std::string garbage = read_all(receiver);
    const double density =
        static_cast<double>(garbage.size()) / static_cast<double>(receiver.statistics().bytes_sent);
    EXPECT_GT(density, c.least) << c.host;
    EXPECT_LT(density, c.most) << c.host;
    EXPECT_EQ(garbage.find("RMC"), std::string::npos);
  }
}

std::string faulty_stream(const std::string& faults, Statistics* statistics = nullptr) {
  ReceiverOptions options;
  options.faults = parse_faults(faults);
  Receiver receiver(options);
  std::string text;
  for (int64_t now = 0; now <= 1000 * second_us; now += 10 * second_us) {
    receiver.advance_to(now);
    text += read_all(receiver);
  }
  if (statistics != nullptr) *statistics = receiver.statistics();
  return text;
}

TEST(SimFaults, AreTheSameForASeedAndHaveTheirRates) {
  Statistics s;
  const std::string first = faulty_stream("drop=0.1,corrupt=0.2,split=0.3,seed=7", &s);
  EXPECT_EQ(first, faulty_stream("split=0.3,drop=0.1,seed=7,corrupt=0.2"));
  EXPECT_NE(first, faulty_stream("drop=0.1,corrupt=0.2,split=0.3,seed=8"));
  EXPECT_NEAR(static_cast<double>(s.sentences_dropped), 500, 80);
  EXPECT_NEAR(static_cast<double>(s.sentences_corrupted), 900, 120);
  EXPECT_NEAR(static_cast<double>(s.sentences_split), 1350, 150);
  const std::string clean = faulty_stream("seed=1");
  const std::string corrupt = faulty_stream("corrupt=1");
  ASSERT_EQ(corrupt.size(), clean.size());
  size_t changed = 0;
  for (size_t i = 0; i < clean.size(); ++i) changed += corrupt[i] != clean[i];
  EXPECT_EQ(changed, 5000U);  // one byte of each sentence
}

}  // namespace
}  // namespace ecu::koru::sim
