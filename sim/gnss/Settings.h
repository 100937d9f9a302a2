#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "sim/gnss/Epochs.h"
#include "sim/gnss/Messages.h"
#include "sim/gnss/ReceiverOptions.h"

namespace ecu::koru::sim {

/// Everything that commands can change, as the payload bytes of the messages that read and write it.
struct Settings {
  static constexpr size_t UART1 = 1, SPI = 4;  ///< port numbers, and indices of `ports`
  /// The host's port. It is wiring, not a setting.
  size_t host_port = UART1;
  /// By port number: I2C, UART 1, UART 2 (which this receiver does not have), USB, SPI.
  std::array<std::array<uint8_t, 20>, 5> ports{};
  /// By message, then by port: n means sent at every n-th solution, 0 never.
  std::array<std::array<uint8_t, 6>, PERIODIC_MESSAGES.size()> message_rates{};
  std::array<uint8_t, 6> rate{};
  std::array<uint8_t, 36> nav5{};
  std::array<uint8_t, 20> nmea{};
  std::array<uint8_t, 60> gnss{};
  std::array<uint8_t, 2> rxm{};
  std::array<uint8_t, 4> antenna{};

  /// Returns the speed of the host's UART; Line::at_once on SPI.
  [[nodiscard]] unsigned baud() const;
  void set_baud(unsigned baud);
  /// Return true if the host's port takes UBX (ubx_in), sends UBX (ubx_out) or sends NMEA (nmea_out).
  [[nodiscard]] bool ubx_in() const { return (ports[host_port][12] & 1U) != 0; }
  [[nodiscard]] bool ubx_out() const { return (ports[host_port][14] & 1U) != 0; }
  [[nodiscard]] bool nmea_out() const { return (ports[host_port][14] & 2U) != 0; }
  [[nodiscard]] uint32_t tx_ready() const { return number_at(ports[SPI], 2, 2); }
  /// Returns the epochs. If the settings have the options' rate `rate_hz`, it is exact on average, even if it
  /// does not divide 1000 ms.
  [[nodiscard]] EpochGrid grid(int rate_hz) const;
  [[nodiscard]] NmeaVersion nmea_version() const;
  /// Returns the enabled constellations, in the order of their sentences.
  [[nodiscard]] std::vector<Constellation> constellations() const;
  [[nodiscard]] uint32_t antenna_flags() const { return number_at(antenna, 0, 2); }
};

/// The sections of CFG-CFG: bits of its masks.
namespace section {
inline constexpr uint32_t PORTS = 1U << 0U;
inline constexpr uint32_t MESSAGES = 1U << 1U;
inline constexpr uint32_t NAVIGATION = 1U << 3U;
inline constexpr uint32_t RECEPTION = 1U << 4U;
inline constexpr uint32_t ANTENNA = 1U << 10U;
inline constexpr uint32_t ALL = 0xFFFFFFFFU;
}  // namespace section

void copy_sections(Settings& to, const Settings& from, uint32_t mask);

/// Returns the factory settings: the six default sentences at 1 Hz, and `baud`.
[[nodiscard]] Settings factory_settings(const ReceiverOptions& options, unsigned baud);
/// Returns the settings of the options: RMC, GGA, GSA, GSV if wanted, and GST, at the options'
/// rate and speed.
[[nodiscard]] Settings settings_of_options(const ReceiverOptions& options);

/// Returns the constellations as bits of MON-GNSS.
[[nodiscard]] uint8_t monitor_map(const std::vector<Constellation>& constellations);

/// The memories that hold saved settings.
class SettingsMemory {
 public:
  enum Device : uint32_t { battery_backed = 1, flash = 2 | 4 | 16 };

  explicit SettingsMemory(const Settings& factory) : m_factory(factory) {}

  void save(const Settings& settings, uint32_t mask, uint32_t devices);
  void clear(uint32_t mask, uint32_t devices);
  /// Loads the sections in `mask`: battery-backed ones, else those in flash, else those of the factory.
  void load(Settings& settings, uint32_t mask) const;

 private:
  struct Store {
    Settings settings;
    uint32_t valid = 0;  // sections that are saved
  };

  Settings m_factory;
  Store m_battery_backed, m_flash;
};

}  // namespace ecu::koru::sim
