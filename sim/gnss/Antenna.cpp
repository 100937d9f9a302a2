#include "sim/gnss/Antenna.h"

namespace ecu::koru::sim {
namespace {

constexpr uint32_t SUPPLY = 0x01;
constexpr uint32_t SHORT_DETECTION = 0x02;
constexpr uint32_t OPEN_DETECTION = 0x04;
constexpr uint32_t OFF_WHEN_SHORT = 0x08;
constexpr uint32_t RECOVERY = 0x10;

constexpr uint8_t STATUS_UNKNOWN = 1, STATUS_OK = 2, STATUS_SHORT = 3, STATUS_OPEN = 4;

bool shuts_down(AntennaState state, uint32_t flags) {
  constexpr uint32_t NEEDED = SUPPLY | SHORT_DETECTION | OFF_WHEN_SHORT;
  return state == AntennaState::short_circuit && (flags & NEEDED) == NEEDED;
}

}  // namespace

std::optional<AntennaState> antenna_state_of(std::string_view name) {
  if (name == "ok") return AntennaState::ok;
  if (name == "open") return AntennaState::open;
  if (name == "short") return AntennaState::short_circuit;
  return std::nullopt;
}

void AntennaSupervisor::set_state(AntennaState state, uint32_t flags) {
  m_state = state;
  if (shuts_down(state, flags)) {
    m_shut_down = true;
  } else if ((flags & RECOVERY) != 0) {
    m_shut_down = false;
  }
}

void AntennaSupervisor::set_flags(uint32_t flags) {
  m_shut_down = shuts_down(m_state, flags);
}

AntennaReport AntennaSupervisor::report(uint32_t flags) const {
  if ((flags & SUPPLY) == 0) return {STATUS_UNKNOWN, 0};
  if (m_shut_down) return {STATUS_SHORT, 0};
  if (m_state == AntennaState::short_circuit && (flags & SHORT_DETECTION) != 0) return {STATUS_SHORT, 1};
  if ((flags & OPEN_DETECTION) == 0) return {STATUS_OK, 1};
  const bool reads_open = (m_state == AntennaState::open) != m_inverted;
  return {reads_open ? STATUS_OPEN : STATUS_OK, 1};
}

bool AntennaSupervisor::receives(uint32_t flags) const {
  return m_state == AntennaState::ok && (flags & SUPPLY) != 0 && !m_shut_down;
}

}  // namespace ecu::koru::sim
