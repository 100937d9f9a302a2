#pragma once

#include <optional>
#include <vector>

#include "sim/gnss/Antenna.h"
#include "sim/gnss/ConfigMessages.h"
#include "sim/gnss/Fix.h"
#include "sim/gnss/Settings.h"

namespace ecu::koru::sim {

/// What a command makes the receiver do besides changing its settings.
enum class Effect : uint8_t { none, restart, stop_navigation, start_navigation, sleep };

/// What comes of a command.
struct Reply {
  std::vector<UbxFrame> frames;  ///< to the host
  Effect effect = Effect::none;
  int64_t sleep_us = 0;        ///< 0: until it is woken
  bool woken_by_host = false;  ///< by any byte on the UART
};

/// The receiver's settings, and what it answers to commands. Knows no time and no line.
class Control {
 public:
  explicit Control(const ReceiverOptions& options);

  /// Carries a command out.
  [[nodiscard]] Reply obey(const UbxFrame& command);

  [[nodiscard]] const Settings& settings() const { return m_settings; }
  /// Takes the saved settings, as at power-up.
  void boot();
  /// Without power what only the battery keeps is gone, unless there is one.
  void lose_power();

  void set_antenna(AntennaState state);
  /// Whether satellites can be received.
  [[nodiscard]] bool receives() const { return m_antenna.receives(m_settings.antenna_flags()); }
  /// What NAV-TIMEUTC tells from now on.
  void set_fix(const Fix& fix) { m_fix = fix; }

  /// The message now, whoever wants it: one of MON-VER, MON-HW, MON-GNSS and NAV-TIMEUTC; otherwise nothing.
  [[nodiscard]] std::optional<UbxFrame> report(UbxId id) const;

 private:
  [[nodiscard]] Reply configure(const UbxFrame& command);
  [[nodiscard]] Reply save(const UbxFrame& command);
  [[nodiscard]] bool refuses(UbxId id) const;

  const ReceiverOptions& m_options;
  Capabilities m_capabilities;
  SettingsMemory m_memory;
  Settings m_settings;
  AntennaSupervisor m_antenna;
  Fix m_fix;
};

}  // namespace ecu::koru::sim
