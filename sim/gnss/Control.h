#pragma once

#include <optional>
#include <vector>

#include "sim/gnss/Antenna.h"
#include "sim/gnss/ConfigMessages.h"
#include "sim/gnss/Fix.h"
#include "sim/gnss/Settings.h"

namespace ecu::koru::sim {

/// The effect of a command besides a change of the settings.
enum class Effect : uint8_t { none, restart, stop_navigation, start_navigation, sleep };

struct Reply {
  std::vector<UbxFrame> frames;  ///< for the host
  Effect effect = Effect::none;
  int64_t sleep_us = 0;        ///< 0: until it is woken
  bool woken_by_host = false;  ///< by any byte on the UART
};

/// Holds the receiver's settings and answers commands, without a clock or a line.
class Control {
 public:
  explicit Control(const ReceiverOptions& options);

  [[nodiscard]] Reply obey(const UbxFrame& command);

  [[nodiscard]] const Settings& settings() const { return m_settings; }
  /// Loads the saved settings, as at power-up.
  void boot();
  /// With the fault reset_to there is no battery, and the battery-backed settings are lost.
  void lose_power();

  void set_antenna(AntennaState state);
  [[nodiscard]] bool receives() const { return m_antenna.receives(m_settings.antenna_flags()); }
  /// Sets the fix that NAV-TIMEUTC reports from now on.
  void set_fix(const Fix& fix) { m_fix = fix; }

  /// Returns the present MON-VER, MON-HW, MON-GNSS or NAV-TIMEUTC; empty for any other message, and for
  /// MON-HW with the fault `newer`.
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
