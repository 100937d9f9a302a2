#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "nmea/EpochAssembly.h"
#include "support/Frames.h"
#include "support/LogCapture.h"

using namespace ecu::koru::gpspub;
using testing::ElementsAre;

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

}  // namespace

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

TEST(NmeaEpochTest, ANewSecondGoesAtOnceOthersAfterAGap) {
  Service service;
  service.epoch.reset(service.now_us);
  const auto due = [&](int64_t after_us) { return service.epoch.isFrameDue(service.now_us + after_us); };
  service.play("RMC GGA GSA GST");
  EXPECT_TRUE(due(0));  // second 19 was not sent yet
  service.epoch.frameSent(service.now_us, service.epoch.infoSent().m_utc_tm);
  EXPECT_FALSE(due(1'300'000));  // the silence after a complete epoch
  EXPECT_TRUE(due(1'300'001));
  service.play("+250 RMC GGA GSA GST");
  EXPECT_FALSE(due(700'000));  // 4 Hz: the same second, at most 0.95 s after the frame
  EXPECT_TRUE(due(700'001));
  service.epoch.holdBack();
  EXPECT_FALSE(due(1'300'000));  // counts from this epoch although it did not leave
  EXPECT_TRUE(due(1'300'001));
  service.play("+250 GGA GSA GSA GST");
  EXPECT_FALSE(due(450'000));  // undated
  EXPECT_TRUE(due(450'001));
  service.play("+250 RMC GGA GSA GST", "20");
  EXPECT_TRUE(due(0));
  service.epoch.frameSent(service.now_us, service.epoch.infoSent().m_utc_tm);
  service.publishGnssData();  // nothing arrived: an empty fix
  service.epoch.frameSent(service.now_us, {});
  EXPECT_FALSE(due(1'000'000));
  EXPECT_TRUE(due(1'000'001));
  service.play("RMC GGA GSA GST", "00");
  EXPECT_TRUE(due(0));  // an undated frame has no second, not even 0

  service.play("GST RMC GGA");
  service.epoch.reset(service.now_us);
  EXPECT_EQ(service.epoch.info().getStatus() + service.epoch.infoSent().getStatus(), 2);
  EXPECT_FALSE(service.epoch.framePublished() || service.epoch.isFrameDue(service.now_us + 1'000'000));
  const size_t before = service.published.size();
  service.play("RMC GGA GSA GSA");  // the GST of before the reset does not count
  EXPECT_EQ(service.published.size(), before);
}
