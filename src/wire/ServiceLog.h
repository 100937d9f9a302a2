#pragma once

#include <atomic>
#include <type_traits>

#include "platform/base/Logging.h"

namespace ecu::koru::gpspub {

/// The areas of detailed logging, each one bit of the diagnostic flag word.
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

/// The diagnostic flag word. Any thread may read and write it.
namespace GnssUtils {

inline std::atomic<unsigned> m_log_flags{0};

inline void setLogFlags(unsigned flags) {
  m_log_flags = flags;
}
[[nodiscard]] inline unsigned logFlags() {
  return m_log_flags;
}
/// Returns true if one of the areas in `flag` is switched on.
[[nodiscard]] inline bool logIt(unsigned flag) {
  return (m_log_flags.load(std::memory_order_relaxed) & flag) != 0;
}
/// Returns true if logIt() does and the level admits debug records.
[[nodiscard]] inline bool debugIt(unsigned flag) {
  return logIt(flag) && logging::enabled(logging::Level::DEBUG);
}

}  // namespace GnssUtils

/// The service's own log: the levels of logging::Module, and records that a diagnostic flag switches
/// on.
class ServiceLog : public logging::Module {
 public:
  using Module::Module;
  /// Writes a DEBUG record if one of the areas in `flags` is switched on. Pass an expensive
  /// part as a function without arguments; it is called only if the record is written.
  template <typename... Parts>
  void detail(unsigned flags, const Parts&... parts) const {
    if (GnssUtils::debugIt(flags)) Module::detail(made(parts)...);
  }

 private:
  template <typename Part>
  [[nodiscard]] static decltype(auto) made(const Part& part) {
    if constexpr (std::is_invocable_v<const Part&>) {
      return part();
    } else {
      return (part);
    }
  }
};

inline constexpr ServiceLog LOG{"koru.gpspub"};

}  // namespace ecu::koru::gpspub
