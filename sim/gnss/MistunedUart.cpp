#include "sim/gnss/MistunedUart.h"

namespace ecu::koru::sim {

constexpr int64_t SECOND_NS = 1'000'000'000;

void MistunedUart::byte(int64_t start_ns, uint8_t value, std::string& out) {
  idle(start_ns, out);
  const unsigned frame = 0x200U | static_cast<unsigned>(value) << 1U;  // start bit 0, data, stop bit 1
  for (int bit = 0; bit < 10; ++bit)
    level((frame >> static_cast<unsigned>(bit) & 1U) != 0, start_ns + (bit + 1) * SECOND_NS / m_line_baud,
          out);
}

void MistunedUart::level(bool high, int64_t until_ns, std::string& out) {
  if (until_ns <= m_time_ns) return;
  if (m_bit == WAITING && m_was_high && !high) {
    m_start_ns = m_time_ns;
    m_bit = 0;
  }
  while (m_bit != WAITING && sample_ns() < until_ns) sample(high, out);
  m_was_high = high;
  m_time_ns = until_ns;
}

void MistunedUart::sample(bool high, std::string& out) {
  if (m_bit == 0) {
    m_value = 0;
    m_bit = high ? WAITING : 1;  // too short for a start bit
  } else if (m_bit <= 8) {
    if (high) m_value = static_cast<uint8_t>(m_value | 1U << static_cast<unsigned>(m_bit - 1));
    ++m_bit;
  } else {
    out.push_back(static_cast<char>(m_value));
    m_bit = WAITING;
  }
}

int64_t MistunedUart::sample_ns() const {
  return m_start_ns + (2 * m_bit + 1) * SECOND_NS / (int64_t{2} * m_uart_baud);
}

}  // namespace ecu::koru::sim
