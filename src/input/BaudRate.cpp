#include "input/BaudRate.h"

#include <algorithm>
#include <array>

namespace ecu::koru::gpspub {

namespace {

struct Baud {
  unsigned bits_per_second;
  speed_t code;
};
// In hunting order: the receiver's own defaults come first, the rates that it rarely has come last.
constexpr std::array<Baud, 6> BAUD_RATES{
    {{19200, B19200}, {9600, B9600}, {38400, B38400}, {57600, B57600}, {115200, B115200}, {4800, B4800}}};
constexpr size_t NUM_HUNTED = 5;  // all but 4800

}  // namespace

bool BaudRate::set(unsigned bits_per_second) {
  const auto* const rate = std::ranges::find(BAUD_RATES, bits_per_second, &Baud::bits_per_second);
  const bool known = rate != BAUD_RATES.end();
  if (known) m_baud_configured = rate->code;
  m_baud_current = m_baud_configured;
  return known;
}

void BaudRate::tryNext() {
  const auto* const current = std::ranges::find(BAUD_RATES, m_baud_current, &Baud::code);
  const auto next = static_cast<size_t>(current - BAUD_RATES.begin()) + 1;
  m_baud_current = BAUD_RATES[next < NUM_HUNTED ? next : 0].code;
}

unsigned BaudRate::bitsPerSecond(speed_t code) {
  const auto* const rate = std::ranges::find(BAUD_RATES, code, &Baud::code);
  return rate != BAUD_RATES.end() ? rate->bits_per_second : 0;
}

}  // namespace ecu::koru::gpspub
