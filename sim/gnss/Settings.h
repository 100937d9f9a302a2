#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "sim/gnss/Epochs.h"
#include "sim/gnss/Messages.h"
#include "sim/gnss/ReceiverOptions.h"

namespace ecu::koru::sim {

/// Everything that commands can change, as payload bytes of the messages that read and write it.
struct Settings {
  static constexpr size_t uart1 = 1, spi = 4;  ///< port numbers, and indices of `ports`
  /// The one that the host is on. Wiring, not a setting.
  size_t host_port = uart1;
  /// By port number: I2C, UART 1, (UART 2, which this receiver does not have), USB, SPI.
  std::array<std::array<uint8_t, 20>, 5> ports{};
  /// By message, then by port: sent at every n-th solution, 0 never.
  std::array<std::array<uint8_t, 6>, periodic_messages.size()> message_rates{};
  std::array<uint8_t, 6> rate{};
  std::array<uint8_t, 36> nav5{};
  std::array<uint8_t, 20> nmea{};
  std::array<uint8_t, 60> gnss{};
  std::array<uint8_t, 2> rxm{};
  std::array<uint8_t, 4> antenna{};

  /// Of the host's port; Line::at_once on SPI.
  [[nodiscard]] unsigned baud() const;
  void set_baud(unsigned baud);
  /// Whether the host's port takes (in) or sends (out) UBX; out only: NMEA.
  [[nodiscard]] bool ubx_in() const { return (ports[host_port][12] & 1U) != 0; }
  [[nodiscard]] bool ubx_out() const { return (ports[host_port][14] & 1U) != 0; }
  [[nodiscard]] bool nmea_out() const { return (ports[host_port][14] & 2U) != 0; }
  /// txReady of the SPI port.
  [[nodiscard]] uint32_t tx_ready() const { return number_at(ports[spi], 2, 2); }
  /// A rate that does not divide the second, chosen by the options, is exact on average: `rate_hz` is theirs.
  [[nodiscard]] EpochGrid grid(int rate_hz) const;
  [[nodiscard]] NmeaVersion nmea_version() const;
  /// The enabled ones, in the order of their sentences.
  [[nodiscard]] std::vector<Constellation> constellations() const;
  [[nodiscard]] uint32_t antenna_flags() const { return number_at(antenna, 0, 2); }
};

/// The sections of CFG-CFG: bits of its masks.
namespace section {
inline constexpr uint32_t ports = 1U << 0U;
inline constexpr uint32_t messages = 1U << 1U;
inline constexpr uint32_t navigation = 1U << 3U;
inline constexpr uint32_t reception = 1U << 4U;
inline constexpr uint32_t antenna = 1U << 10U;
inline constexpr uint32_t all = 0xFFFFFFFFU;
}  // namespace section

/// Copies the sections that `mask` names.
void copy_sections(Settings& to, const Settings& from, uint32_t mask);

/// As it leaves the factory: 9600 baud or `baud`, the six default sentences at 1 Hz.
[[nodiscard]] Settings factory_settings(const ReceiverOptions& options, unsigned baud);
/// What the options describe: RMC, GGA, GSA, GSV if wanted, and GST at the options' rate and speed.
[[nodiscard]] Settings settings_of_options(const ReceiverOptions& options);

/// gnssId of CFG-GNSS and bit of MON-GNSS.
struct SystemNumbers {
  uint8_t gnss_id;
  uint8_t monitor_bit;
};
[[nodiscard]] SystemNumbers numbers_of(Constellation constellation);
/// As the bits of MON-GNSS.
[[nodiscard]] uint8_t monitor_map(const std::vector<Constellation>& constellations);

/// The memories that hold settings while the receiver has no power, or while it does not use them.
class SettingsMemory {
 public:
  enum Device : uint32_t { battery_backed = 1, flash = 2 | 4 | 16 };

  explicit SettingsMemory(const Settings& factory) : m_factory(factory) {}

  void save(const Settings& settings, uint32_t mask, uint32_t devices);
  void clear(uint32_t mask, uint32_t devices);
  /// The saved sections that `mask` names, where nothing is saved those of the factory.
  void load(Settings& settings, uint32_t mask) const;

 private:
  struct Store {
    Settings settings;
    uint32_t valid = 0;  // sections
  };

  Settings m_factory;
  Store m_battery_backed, m_flash;
};

}  // namespace ecu::koru::sim
