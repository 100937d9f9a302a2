#include "sim/gnss/Antenna.h"

namespace ecu::koru::sim {
namespace {

constexpr uint32_t supply = 0x01;
constexpr uint32_t short_detection = 0x02;
constexpr uint32_t open_detection = 0x04;
constexpr uint32_t off_when_short = 0x08;
constexpr uint32_t recovery = 0x10;

constexpr uint8_t status_unknown = 1, status_ok = 2, status_short = 3, status_open = 4;

bool shuts_down(AntennaState state, uint32_t flags) {
  constexpr uint32_t needed = supply | short_detection | off_when_short;
  return state == AntennaState::short_circuit && (flags & needed) == needed;
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
  } else if ((flags & recovery) != 0) {
    m_shut_down = false;
  }
}

void AntennaSupervisor::set_flags(uint32_t flags) {
  m_shut_down = shuts_down(m_state, flags);
}

AntennaReport AntennaSupervisor::report(uint32_t flags) const {
  if ((flags & supply) == 0) return {status_unknown, 0};
  if (m_shut_down) return {status_short, 0};
  if (m_state == AntennaState::short_circuit && (flags & short_detection) != 0) return {status_short, 1};
  if ((flags & open_detection) == 0) return {status_ok, 1};
  const bool reads_open = (m_state == AntennaState::open) != m_inverted;
  return {reads_open ? status_open : status_ok, 1};
}

bool AntennaSupervisor::receives(uint32_t flags) const {
  return m_state == AntennaState::ok && (flags & supply) != 0 && !m_shut_down;
}

}  // namespace ecu::koru::sim
