// Gives any text to each sentence parser, and epochs of sentences to assembly and publication.

#include <array>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "fuzz/FuzzTarget.h"
#include "nmea/EpochAssembly.h"
#include "nmea/GnssInfo.h"
#include "nmea/NmeaParsers.h"
#include "nmea/UtcCalendar.h"
#include "platform/base/Logging.h"
#include "publish/GnssPublishCAN.h"
#include "publish/GnssPublishMqtt.h"
#include "support/Frames.h"
#include "wire/Stopwatch.h"

namespace fuzz {

using namespace ecu::koru;
using namespace ecu::koru::gpspub;

namespace {

constexpr std::array PARSERS{GnssUtils::parseRMCString, GnssUtils::parseGGAString, GnssUtils::parseGSAString,
                             GnssUtils::parseGSTString};

void check_record(const GnssInfo& info) {
  require(info.m_num_satellites >= -1, "satellites are counted");
  require(info.m_utc_tm.tm_mday == 0 || isCalendarTime(info.m_utc_tm), "a date is one of the calendar");
  require(info.m_utc_tm.tm_mday == 0 || (info.m_utc_tm.tm_year >= 70 && info.m_utc_tm.tm_year <= 168),
          "a date lies between 1970 and 2068");
  require(info.m_utc_fraction_us >= -1 && info.m_utc_fraction_us < 1'000'000, "a fraction is below a second");
  require(info.getStatus() >= 1 && info.getStatus() <= 3, "the status is 1 to 3");
  require(info.getNavModeGnss() >= -1 && info.getNavModeGnss() <= 2, "the bus's mode is -1 to 2");
  require(info.getQualityIndicatorGnss() >= -1 && info.getQualityIndicatorGnss() <= 3,
          "the bus's quality is -1 to 3");
}

/// Checks that the position and the date survive being written to a sentence and read again.
void check_round_trip(const GnssInfo& info) {
  constexpr double MAX_LONGITUDE = 18'000;  // dddmm.mmmm
  if (!(std::fabs(info.m_latitude) < MAX_LONGITUDE && std::fabs(info.m_longitude) < MAX_LONGITUDE)) return;
  const std::tm& utc = info.m_utc_tm;
  std::array<char, 200> body{};
  static_cast<void>(std::snprintf(
      body.data(), body.size(), "$GNRMC,%02d%02d%02d,A,%.7f,%c,%.7f,%c,,,%02d%02d%02d,,\r\n", utc.tm_hour,
      utc.tm_min, utc.tm_sec, std::fabs(info.m_latitude), std::signbit(info.m_latitude) ? 'S' : 'N',
      std::fabs(info.m_longitude), std::signbit(info.m_longitude) ? 'W' : 'E', utc.tm_mday, utc.tm_mon + 1,
      utc.tm_year % 100));
  GnssInfo again;
  GnssUtils::parseRMCString(body.data(), again);
  require(std::fabs(again.m_latitude - info.m_latitude) < 1e-6, "a latitude survives a sentence");
  require(std::fabs(again.m_longitude - info.m_longitude) < 1e-6, "a longitude survives a sentence");
  if (utc.tm_mday == 0) return;
  require(secondsSinceEpoch(again.m_utc_tm) == secondsSinceEpoch(utc), "a date survives a sentence");
}

/// The parts of the service that an epoch needs.
class Publisher final : public IEpochOwner {
 public:
  void publishGnssData() override {
    check_record(epoch.info());
    m_mqtt.publishFrame(m_client, epoch.info(), epoch.sentences());
    epoch.rotate(1);
    require(epoch.sentences().empty(), "an epoch that was published is over");
  }
  void checkSetSystemTime() override {
    require(epoch.info().getUtcTimeUs() != -1, "the clock is set from a date");
  }
  void send_if_due(int64_t now_us) {
    const bool published = epoch.framePublished();
    if (!epoch.isFrameDue(now_us, false)) {
      if (published) epoch.holdBack();
      return;
    }
    if (!published) publishGnssData();
    const std::tm utc = epoch.infoSent().m_utc_tm;
    m_can.publishFrame(m_client, epoch.infoSent(), epoch.sentences());
    epoch.infoSent().clear();
    epoch.frameSent(now_us, utc);
    require(!epoch.isFrameDue(now_us, false), "a frame that was sent is no longer due");
  }

  std::shared_ptr<com::MemoryTransport> bus = std::make_shared<com::MemoryTransport>();
  EpochAssembly epoch{*this};

 private:
  std::shared_ptr<com::ITransportClient> m_client = bus;
  GnssPublishMqtt m_mqtt;
  GnssPublishCAN m_can;
};

/// Replaces every character that does not pass framing by CR.
std::string framed(std::string body) {
  for (char& c : body) c = c >= 0x20 && c <= 0x7E ? c : '\r';
  return body;
}

}  // namespace

/// Input: the parser's number, the receiver's UTC flags, a sentence.
void sentences(Bytes bytes) {
  Input input(bytes);
  const auto parse = PARSERS[input.byte() % PARSERS.size()];
  GnssInfo info;
  info.m_utc_valid_flags = input.byte() & 7;
  try {
    parse(text(input.rest()), info);
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
  check_record(info);
  check_round_trip(info);
}

/// Input: lines, each the time since the previous one (tenths of a second above '0') and the text between
/// "$" and "*".
void epochs(Bytes bytes) {
  Input input(bytes);
  Publisher service;
  service.epoch.reset(GnssUtils::getMicrosecDuration(0));
  while (!input.empty()) {
    virtual_time().advance(int64_t{input.byte()} % 64 % 48 * 100'000'000);
    const int64_t now_us = GnssUtils::getMicrosecDuration(0);
    service.epoch.setDataTime(now_us, virtual_time().boot_ns());
    std::string line = test::nmea(framed(input.line()));
    line.back() = '\0';  // framing leaves it like this
    const std::span whole(reinterpret_cast<const unsigned char*>(line.data()), line.size());
    if (service.epoch.validateNmeaMessage(whole)) service.epoch.processNewNmeaString(38400);
    require(service.epoch.sentences().size() <= 102, "an epoch holds a bounded number of sentences");
    service.send_if_due(now_us);
  }
  check_published(*service.bus);
}

}  // namespace fuzz
