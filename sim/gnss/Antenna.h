#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace ecu::koru::sim {

enum class AntennaState : uint8_t { ok, open, short_circuit };

/// Returns the state named "ok", "open" or "short"; empty if the name is another.
[[nodiscard]] std::optional<AntennaState> antenna_state_of(std::string_view name);

/// The antenna fields of MON-HW.
struct AntennaReport {
  uint8_t status;  ///< 1 don't know, 2 OK, 3 short circuit, 4 open circuit
  uint8_t power;   ///< 0 off, 1 on
};

/// Watches the antenna. `flags` are always those of CFG-ANT.
class AntennaSupervisor {
 public:
  /// If `inverted`, the line that detects an open circuit has the opposite level: a good antenna reads as
  /// open and an open one as OK.
  AntennaSupervisor(AntennaState state, bool inverted) : m_state(state), m_inverted(inverted) {}

  void set_state(AntennaState state, uint32_t flags);
  /// Takes new flags, from CFG-ANT or at power-up. An antenna that was switched off gets power again if its
  /// short circuit is gone.
  void set_flags(uint32_t flags);
  [[nodiscard]] AntennaReport report(uint32_t flags) const;
  /// Returns true if the antenna is good and has power.
  [[nodiscard]] bool receives(uint32_t flags) const;

 private:
  AntennaState m_state;
  bool m_inverted;
  bool m_shut_down = false;  // by a short circuit
};

}  // namespace ecu::koru::sim
