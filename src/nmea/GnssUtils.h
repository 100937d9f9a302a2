#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "nmea/GnssInfo.h"
#include "nmea/ServiceLog.h"
#include "platform/Transport.h"

namespace ecu::koru::gpspub {

/// The areas of detailed logging, one bit each of the diagnostic flag word.
namespace logflag {
inline constexpr unsigned PUBLICATION = 0x1;
inline constexpr unsigned NMEA_VALIDATION = 0x2;
inline constexpr unsigned UBX_CONFIGURATION = 0x4;
inline constexpr unsigned NEW_DATA = 0x40;
inline constexpr unsigned BYTES_SENT = 0x100;
inline constexpr unsigned WAITING = 0x800;
inline constexpr unsigned WAITING_HELD = 0x1000;
inline constexpr unsigned CONNECTION = 0x2000;
inline constexpr unsigned READS = 0x4000;
inline constexpr unsigned CONSTELLATIONS = 0x8000;
inline constexpr unsigned SIGNAL_GROUPS = 0x10000;
inline constexpr unsigned SYSTEM_PARAMETERS = 0x20000;
inline constexpr unsigned COMMANDS = 0x40000;
inline constexpr unsigned UBX_DISPATCH = 0x80000;
inline constexpr unsigned ANTENNA = 0x100000;
inline constexpr unsigned UBX_DISPATCH_2 = 0x200000;
inline constexpr unsigned READS_PARSED = 0x400000;
inline constexpr unsigned FRAMING = 0x800000;
inline constexpr unsigned FRAME_TIMING = 0x1000000;
inline constexpr unsigned RADIO_SILENCE = 0x2000000;
inline constexpr unsigned ACKNOWLEDGEMENTS = 0x4000000;
inline constexpr unsigned START_UP = 0x80000000;
}  // namespace logflag

/// Helpers that input, parsing and receiver control share. Everything static.
///
/// Threads: the flag word may be read and written by any thread; the stopwatches belong to the service
/// thread.
class GnssUtils {
 public:
  virtual ~GnssUtils() = default;

  // --- diagnostics
  // ------------------------------------------------------------------------------------------------
  /// True when one of the areas in `flag` is switched on.
  [[nodiscard]] static bool logIt(unsigned flag) {
    return (m_log_flags.load(std::memory_order_relaxed) & flag) != 0;
  }
  /// logIt() and the level admits debug records: a text behind it costs nothing otherwise.
  [[nodiscard]] static bool debugIt(unsigned flag) {
    return logIt(flag) && logging::enabled(logging::Level::DEBUG);
  }
  static void setLogFlags(unsigned flags) { m_log_flags = flags; }
  [[nodiscard]] static unsigned logFlags() { return m_log_flags; }

  // --- stopwatches 0 to 7, monotonic
  // ------------------------------------------------------------------------------
  static void initDuration();
  static void setDurationStart(unsigned idx);
  /// Microseconds since the stopwatch was started; 0 for an index above 7.
  [[nodiscard]] static int64_t getMicrosecDuration(unsigned idx);

  // --- NMEA 0183 checksum: XOR of everything between '$' and '*'
  // ---------------------------------------------------
  /// `len` counts the whole line with its CR LF; `hi` and `lo` become the two upper-case hex digits.
  static void calcNmeaChecksum(const unsigned char* buf, unsigned len, unsigned char* hi, unsigned char* lo);
  [[nodiscard]] static bool isNmeaChecksumCorrect(const unsigned char* buf, unsigned len);
  /// "$" + body + "*" + two upper-case hex digits + two more bytes, at least 8 in all, with the right
  /// checksum.
  [[nodiscard]] static bool isValidNmeaMessage(const unsigned char* buf, unsigned len);

  // --- UBX checksum: 8-bit Fletcher over class to payload
  // -----------------------------------------------------------
  /// `buf` is the whole frame with its sync and checksum bytes.
  static void calcUbloxChecksum(const unsigned char* buf, unsigned len, unsigned char* a, unsigned char* b);
  [[nodiscard]] static bool isUbloxChecksumCorrect(const unsigned char* buf, unsigned len);
  /// Writes the right checksum into the last two bytes. False, unchanged, below 8 bytes.
  [[nodiscard]] static bool fixUbloxChecksum(std::string& msg);

  // --- conversions
  // ------------------------------------------------------------------------------------------------
  /// ddmm.mmmm to decimal degrees, sign kept, NaN stays NaN.
  static void convertDegMinDecMinToDegDecDeg(const double& in, double& out);
  /// Decimal degrees to ddmm.mmmm.
  static void convertDegDecDegToDegMinDecMin(const double& in, double& out);
  /// Index of the first of the two bytes in [0, len), -1 when there is none.
  [[nodiscard]] static int find2CharsInString(const unsigned char* buf, unsigned char c1, unsigned char c2,
                                              unsigned len);
  /// Index behind the n-th comma; 0 when there are fewer.
  [[nodiscard]] static unsigned findGpsStringPosition(const unsigned char* buf, unsigned n, unsigned len);
  [[nodiscard]] static unsigned countNumberCommas(const unsigned char* buf, unsigned len);
  [[nodiscard]] static unsigned countNumberCommas(const std::string& text);
  /// Hex text, either case, to bytes. False on an odd length (`out` empty) and on a pair that is no hex
  /// number (`out` holds the bytes before it).
  [[nodiscard]] static bool hexToBinary(const std::string& hex, std::string& out);

  // --- NMEA sentences into the record
  // ------------------------------------------------------------------------------- Each takes a validated
  // sentence with its CR LF. Malformed fields leave the record as it is.

  /// Status, position, speed, course, date and time.
  static void parseRMCString(const std::string& sentence, GnssInfo& info);
  /// Position, quality, satellites, altitude. Throws std::invalid_argument or std::out_of_range, record
  /// unchanged, when the satellites field is no number.
  static void parseGGAString(const std::string& sentence, GnssInfo& info);
  /// Navigation mode and dilutions.
  static void parseGSAString(const std::string& sentence, GnssInfo& info);
  /// Position error.
  static void parseGSTString(const std::string& sentence, GnssInfo& info);

  // --- the record into a signal group
  // -------------------------------------------------------------------------------
  /// UTC and offset to local time as the time/date group (PGN 65254) that has this topic; all not available
  /// without a dated fix. False, logged, when there is no such group.
  [[nodiscard]] static bool create_Timedate_Var6_Message(const std::string& topic, const GnssInfo& info,
                                                         com::Message& out);

 private:
  static inline std::atomic<unsigned> m_log_flags{0};
  static inline std::array<int64_t, 8> start{};  // steady ns
};

}  // namespace ecu::koru::gpspub
