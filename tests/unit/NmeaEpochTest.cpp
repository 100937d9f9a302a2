#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "nmea/EpochAssembly.h"
#include "support/Frames.h"
#include "support/LogCapture.h"

using namespace ecu::koru::gpspub;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// The assembly with an owner that publishes into a list, as the service would.
struct Service final : IEpochOwner {
  EpochAssembly epoch{*this};
  std::vector<size_t> published;  // sentences of each epoch
  int clock_checks = 0;
  int64_t now_us = 10'000'000;

  void publishGnssData() override {
    published.push_back(epoch.sentences().size());
    epoch.rotate(1);
  }
  void checkSetSystemTime() override { ++clock_checks; }

  bool line(std::string text, unsigned baud = 38400) {
    text.back() = '\0';  // as framing leaves it
    epoch.setDataTime(now_us, 7'000'000'000 + now_us * 1000);
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    if (!epoch.validateNmeaMessage({bytes, text.size()})) return false;
    epoch.processNewNmeaString(baud);
    return true;
  }
  /// "RMC GGA +250 GST": sentences, and milliseconds that pass.
  void play(const std::string& script, const std::string& second = "19") {
    std::istringstream words(script);
    for (std::string word; words >> word;) {
      if (word[0] == '+') {
        now_us += std::stoll(word) * 1000;
      } else {
        EXPECT_TRUE(line(test::nmea("GN" + word + fields(word, second)))) << word;
      }
    }
  }
  static std::string fields(const std::string& type, const std::string& second) {
    if (type == "RMC") return ",1235" + second + ",A,4807.038,N,01131.000,E,22.4,84.4,230394,,";
    if (type == "GGA") return ",123519,4807.038,N,01131.000,E,1,8,0.9,545.4,M,46.9,M,,";
    return type == "GSA" ? ",A,3,1,2,3,4,,,,,,,,,1.9,1.1,1.5,1" : ",123519,,,,,2.5,3.1,4";
  }
};

std::tm atSecond(int second) {
  std::tm utc{};
  utc.tm_sec = second;
  return utc;
}

}  // namespace

TEST(NmeaEpochTest, PublishesWhenAnEpochIsComplete) {
  const std::pair<std::string, std::vector<size_t>> rows[] = {{"RMC GGA GSA GST", {4}},
                                                              {"RMC GGA GSA GSA GSV GST GSV", {6}},
                                                              {"RMC GGA GST", {}},
                                                              {"GST RMC GGA GSA", {4}},
                                                              {"RMC GGA GSA GST RMC GGA GSA GST", {4, 4}},
                                                              {"RMC GGA GSA +950 RMC", {}},
                                                              {"RMC GGA GSA +951 RMC", {3}},  // overdue
                                                              {"RMC GGA GST +1000 RMC GGA GSA GST", {3, 4}},
                                                              {"RMC GGA +1000 RMC GGA GSA", {}}};
  for (const auto& [script, published] : rows) {
    Service service;
    service.epoch.frameSent(service.now_us, atSecond(0));
    service.play(script);
    EXPECT_EQ(service.published, published) << script;
  }
}

TEST(NmeaEpochTest, HandsOnTheWholeFixAndStartsAnew) {
  Service service;
  service.line(test::nmea("GPTXT," + std::string(448, 'x')), 115200);  // 460 bytes take 39 ms
  service.play("RMC +20 GGA GSA GST");
  GnssInfo& fix = service.epoch.infoSent();
  EXPECT_EQ(fix.getUtcTimeUs(), 764'426'119'000'000);
  EXPECT_TRUE(fix.m_num_satellites == 8 && fix.m_hdop == 1.1 && fix.m_position_error == 3.1);
  EXPECT_EQ(fix.m_frame_time, 17'000'000'000 - 39'000'000);
  EXPECT_TRUE(service.epoch.info().getStatus() == 1 && service.epoch.info().m_receiver_flag == 1);
  const std::string undated = test::nmea("GPRMC,123519,V,,,,,,,230394,,");
  service.line(undated);
  EXPECT_EQ(service.clock_checks, 1);
  EXPECT_THAT(service.epoch.sentences(), ElementsAre(undated));
}

TEST(NmeaEpochTest, BadSentencesCostThemselvesOnly) {
  test::LogCapture log("WARNING");
  Service service;
  service.play("RMC");
  EXPECT_FALSE(service.line("$GNGGA,1*00\r\n") || service.line(std::string(5000, '$')));
  EXPECT_TRUE(service.line(test::nmea("GNGGA,123519,1,S,1,W,1,x,0.9,1,M,1,M,,")));
  EXPECT_TRUE(service.line(test::nmea("GNGGA,123519,1,S,1,W,1,99999999999999999999,0.9,1,M,1,M,,")));
  EXPECT_TRUE(service.line(test::nmea("GP")));  // too short for a type
  EXPECT_EQ(service.epoch.info().m_latitude, 4807.038);
  service.play("GGA GST");
  EXPECT_THAT(service.published, ElementsAre(4));
  for (int i = 0; i < 200; ++i) {  // an epoch that never ends
    service.play("GSV");
    ASSERT_LE(service.epoch.sentences().size(), 101U);
  }
  const std::string text = log.take();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
  EXPECT_THAT(text,
              HasSubstr("WARNING koru.gpspub: sentence dropped, no number: $GNGGA,123519,1,S,1,W,1,x,"));
  EXPECT_THAT(text, HasSubstr("\\x0D\\x0A\n"));
  EXPECT_THAT(text, HasSubstr("Error  nmea_list.size = 101\n"));
}

TEST(NmeaEpochTest, KnowsWhenAFrameIsDue) {
  const struct {
    std::string before, after;   // the frame is sent between them
    int64_t due_us, patient_us;  // since then: not due at this time, due a microsecond later
  } rows[] = {{"", "", 1'000'000, 1'000'000},
              {"RMC GGA GSA GST", "", 1'000'000, 1'300'000},  // the next burst may be late
              {"RMC GGA GSA GST", "+100 RMC GGA", 1'300'000, 1'300'000},
              {"RMC GGA GSA GST", "RMC GGA GSA GST", 1'000'000, 1'000'000},  // the same second again
              {"RMC GGA GSA +11000 RMC", "GGA", 1'300'000, 1'300'000}};
  for (const auto& row : rows) {
    Service service;
    service.play(row.before);
    const int64_t sent_us = service.now_us;
    service.epoch.frameSent(sent_us, atSecond(19));
    service.play(row.after);
    const auto due = [&](int64_t us) { return service.epoch.isTimeoutToSendFrame(sent_us + us); };
    const auto patient = [&](int64_t us) { return service.epoch.isFrameDue(sent_us + us); };
    EXPECT_TRUE(!due(row.due_us) && due(row.due_us + 1)) << row.before << " | " << row.after;
    EXPECT_TRUE(!patient(row.patient_us) && patient(row.patient_us + 1)) << row.before << " | " << row.after;
  }
}

TEST(NmeaEpochTest, ANewSecondGoesAtOnceAndPatienceIsForOneBurst) {
  Service service;
  service.play("RMC GGA GSA GST");
  EXPECT_TRUE(service.epoch.isFrameDue(service.now_us));  // second 19 was not sent yet
  service.epoch.frameSent(service.now_us, atSecond(19));
  service.play("+250 RMC GGA GSA GST");
  EXPECT_FALSE(service.epoch.isFrameDue(service.now_us));  // 4 Hz: the same second
  service.play("+250 RMC GGA GSA GST", "20");
  EXPECT_TRUE(service.epoch.isFrameDue(service.now_us));
  service.epoch.frameSent(service.now_us, atSecond(20));
  service.publishGnssData();  // nothing arrived: an empty fix
  service.epoch.frameSent(service.now_us, atSecond(20));
  EXPECT_TRUE(service.epoch.isFrameDue(service.now_us + 1'000'001));

  service.play("GST RMC GGA");
  service.epoch.reset(service.now_us);
  EXPECT_EQ(service.epoch.info().getStatus() + service.epoch.infoSent().getStatus(), 2);
  EXPECT_FALSE(service.epoch.framePublished() || service.epoch.isFrameDue(service.now_us + 1'000'000));
  const size_t before = service.published.size();
  service.play("RMC GGA GSA GSA");  // the GST of before the reset does not count
  EXPECT_EQ(service.published.size(), before);
}
