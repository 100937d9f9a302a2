#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace ecu::koru::sim {

/// What is wrong with the antenna, physically.
enum class AntennaState : uint8_t { ok, open, short_circuit };

/// Of "ok", "open" and "short".
[[nodiscard]] std::optional<AntennaState> antenna_state_of(std::string_view name);

/// What MON-HW says of it.
struct AntennaReport {
  uint8_t status;  ///< 1 don't know, 2 OK, 3 short circuit, 4 open circuit
  uint8_t power;   ///< 0 off, 1 on
};

/// Watches the antenna as the flags of CFG-ANT tell it to.
class AntennaSupervisor {
 public:
  /// `inverted`: the detection line for an open circuit is wired the other way round, so that a sound antenna
  /// reads as open and an open one as OK.
  AntennaSupervisor(AntennaState state, bool inverted) : m_state(state), m_inverted(inverted) {}

  void set_state(AntennaState state, uint32_t flags);
  /// New flags, from CFG-ANT or at power-up: an antenna that was switched off for a short circuit gets power
  /// again.
  void set_flags(uint32_t flags);
  [[nodiscard]] AntennaReport report(uint32_t flags) const;
  /// Whether satellites can be received: the antenna is sound and has power.
  [[nodiscard]] bool receives(uint32_t flags) const;

 private:
  AntennaState m_state;
  bool m_inverted;
  bool m_shut_down = false;  // for a short circuit, until the flags are set again
};

}  // namespace ecu::koru::sim
