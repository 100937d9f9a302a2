#pragma once

#include <cstdint>
#include <ctime>

namespace ecu::koru::gpspub {

/// One fix. A field holds a value from the epoch's sentences or, in CAN-input mode, from the bus; otherwise
/// its invalid marker: NaN for reals, -1 for counts and codes unless stated. A plain value; one thread at a
/// time.
class GnssInfo {
 public:
  GnssInfo();
  virtual ~GnssInfo() = default;
  GnssInfo(const GnssInfo&) = default;
  GnssInfo& operator=(const GnssInfo&) = default;

  /// Makes everything invalid except m_utc_valid_flags, m_spare_2, m_summer_time and m_receiver_flag, which
  /// outlive an epoch.
  void clear();

  /// Returns 3 if valid and dated; 2 if valid but undated, or if the status is a warning ('V'); otherwise 1.
  [[nodiscard]] int32_t getStatus() const;

  /// Decimal degrees, north and east positive; NaN if not available.
  [[nodiscard]] double getLatitudeDecDeg() const;
  [[nodiscard]] double getLongitudeDecDeg() const;
  void setLatitudeDegDec(double degrees);
  void setLongitudeDegDec(double degrees);

  /// Returns the compact code of the buses: 0 no fix, 1 2D, 2 3D; -1 not available.
  [[nodiscard]] int32_t getNavModeGnss() const;
  /// Takes the compact code and sets the status to match it ('V' without a fix).
  void setNavModeGnss(int32_t mode);

  /// Returns the compact code of the buses: 0 none, 1 GNSS, 2 differential, 3 dead reckoning;
  /// -1 not available.
  [[nodiscard]] int32_t getQualityIndicatorGnss() const;
  void setQualityIndicatorGnss(int32_t quality);

  /// Returns UTC in microseconds since 1970-01-01, or -1 without a date. Keeps the first result until
  /// clear() or setUtcTime().
  [[nodiscard]] int64_t getUtcTimeUs();
  void setUtcTime(int64_t us) { m_utc_time_us = us; }

  double m_latitude;   // NMEA form ddmm.mmmm, south negative
  double m_longitude;  // NMEA form dddmm.mmmm, west negative
  int32_t m_nav_mode;  // GSA: 1 no fix, 2 2D, 3 3D
  int32_t m_status;    // RMC: 'A' valid, 'V' warning
  double m_speed;      // km/h
  double m_course;     // degrees
  double m_spare_1;
  double m_gga_time;            // hhmmss.ss as a number
  int64_t m_utc_time_us;        // cache of getUtcTimeUs()
  int32_t m_quality_indicator;  // GGA fix quality: 0, 1, 2, 6 ...
  int32_t m_num_satellites;     // used in the solution
  double m_altitude;            // metres above mean sea level
  double m_position_error;      // metres, larger of the GST latitude and longitude deviations
  int64_t m_frame_time;         // ns since boot when the epoch's first sentence began to arrive; 0 unknown
  uint8_t m_utc_valid_flags;    // UBX NAV-TIMEUTC valid: 1 time of week, 2 week number, 4 UTC
  double m_hdop;
  double m_vdop;
  double m_pdop;
  double m_spare_2;
  double m_spare_3;
  std::tm m_utc_tm;               // UTC; present if the day of month is not 0
  int32_t m_local_hour_offset;    // 255: not available
  int32_t m_local_minute_offset;  // 255: not available
  uint8_t m_summer_time;          // 0 or 1; 3: not available
  int64_t m_utc_fraction_us;      // of the RMC time; -1 if that was malformed
  uint8_t m_receiver_flag;        // 0: the receiver may not be configured, so do not trust the fix
};

/// The bit of m_utc_valid_flags that says that UTC itself is valid.
inline constexpr uint8_t UTC_VALID = 0x04;
/// Values of m_status.
inline constexpr int32_t STATUS_VALID = 0x41;    // 'A'
inline constexpr int32_t STATUS_WARNING = 0x56;  // 'V'
inline constexpr int32_t OFFSET_NOT_AVAILABLE = 255;
inline constexpr uint8_t SUMMER_TIME_NOT_AVAILABLE = 3;

}  // namespace ecu::koru::gpspub
