#include "nmea/GnssInfo.h"

#include <cmath>
#include <limits>

#include "nmea/NmeaParsers.h"
#include "nmea/UtcCalendar.h"

namespace ecu::koru::gpspub {

namespace {
constexpr double NOT_AVAILABLE = std::numeric_limits<double>::quiet_NaN();
constexpr int64_t US_PER_S = 1'000'000;
constexpr int32_t DEAD_RECKONING_NMEA = 6;
constexpr int32_t DEAD_RECKONING_BUS = 3;
}  // namespace

GnssInfo::GnssInfo() : m_summer_time(SUMMER_TIME_NOT_AVAILABLE), m_receiver_flag(0) {
  clear();
  m_utc_valid_flags = 0;
  m_spare_2 = NOT_AVAILABLE;
}

void GnssInfo::clear() {
  m_latitude = m_longitude = NOT_AVAILABLE;
  m_nav_mode = m_status = -1;
  m_speed = m_course = m_spare_1 = m_gga_time = NOT_AVAILABLE;
  m_utc_time_us = -1;
  m_quality_indicator = m_num_satellites = -1;
  m_altitude = m_position_error = NOT_AVAILABLE;
  m_frame_time = 0;
  m_hdop = m_vdop = m_pdop = m_spare_3 = NOT_AVAILABLE;
  m_utc_tm = std::tm{};
  m_local_hour_offset = m_local_minute_offset = OFFSET_NOT_AVAILABLE;
  m_utc_fraction_us = 0;
}

int32_t GnssInfo::getStatus() const {
  if (m_status == STATUS_VALID) return m_utc_tm.tm_mday != 0 ? 3 : 2;
  return m_status == STATUS_WARNING ? 2 : 1;
}

double GnssInfo::getLatitudeDecDeg() const {
  double degrees = NOT_AVAILABLE;
  GnssUtils::convertDegMinDecMinToDegDecDeg(m_latitude, degrees);
  return degrees;
}

double GnssInfo::getLongitudeDecDeg() const {
  double degrees = NOT_AVAILABLE;
  GnssUtils::convertDegMinDecMinToDegDecDeg(m_longitude, degrees);
  return degrees;
}

void GnssInfo::setLatitudeDegDec(double degrees) {
  m_latitude = NOT_AVAILABLE;
  if (!std::isnan(degrees)) GnssUtils::convertDegDecDegToDegMinDecMin(degrees, m_latitude);
}

void GnssInfo::setLongitudeDegDec(double degrees) {
  m_longitude = NOT_AVAILABLE;
  if (!std::isnan(degrees)) GnssUtils::convertDegDecDegToDegMinDecMin(degrees, m_longitude);
}

int32_t GnssInfo::getNavModeGnss() const {
  return m_nav_mode >= 1 && m_nav_mode <= 3 ? m_nav_mode - 1 : -1;
}

void GnssInfo::setNavModeGnss(int32_t mode) {
  if (mode < 0 || mode > 2) {
    m_nav_mode = m_status = -1;
    return;
  }
  m_nav_mode = mode + 1;
  m_status = mode == 0 ? STATUS_WARNING : STATUS_VALID;
}

int32_t GnssInfo::getQualityIndicatorGnss() const {
  if (m_quality_indicator >= 0 && m_quality_indicator <= 2) return m_quality_indicator;
  return m_quality_indicator == DEAD_RECKONING_NMEA ? DEAD_RECKONING_BUS : -1;
}

void GnssInfo::setQualityIndicatorGnss(int32_t quality) {
  if (quality < 0 || quality > DEAD_RECKONING_BUS) {
    m_quality_indicator = -1;
  } else {
    m_quality_indicator = quality == DEAD_RECKONING_BUS ? DEAD_RECKONING_NMEA : quality;
  }
}

int64_t GnssInfo::getUtcTimeUs() {
  if (m_utc_time_us != -1 || m_utc_tm.tm_mday == 0) return m_utc_time_us;
  m_utc_time_us = secondsSinceEpoch(m_utc_tm) * US_PER_S;
  if (m_utc_fraction_us >= 1) m_utc_time_us += m_utc_fraction_us;
  return m_utc_time_us;
}

}  // namespace ecu::koru::gpspub
