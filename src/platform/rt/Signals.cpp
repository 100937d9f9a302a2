#include "platform/rt/Signals.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace ecu::koru::rt {

namespace {

/// Calls `part(byte, shift, done, mask)` for each byte that the bits lie in: `mask` bits at `shift` of that
/// byte are the value's bits from `done` on.
template <typename Part>
void for_each_byte(unsigned start_bit, unsigned width, Part part) {
  for (unsigned done = 0; done < width;) {
    const unsigned shift = (start_bit + done) % 8;
    const unsigned count = std::min(8 - shift, width - done);
    part((start_bit + done) / 8, shift, done, (1U << count) - 1);
    done += count;
  }
}

uint64_t read_bits(std::span<const uint8_t> bytes, unsigned start_bit, unsigned width) {
  uint64_t value = 0;
  for_each_byte(start_bit, width, [&](unsigned byte, unsigned shift, unsigned done, unsigned mask) {
    value |= uint64_t{unsigned{bytes[byte]} >> shift & mask} << done;
  });
  return value;
}

void write_bits(std::span<uint8_t> bytes, unsigned start_bit, unsigned width, uint64_t value) {
  for_each_byte(start_bit, width, [&](unsigned byte, unsigned shift, unsigned done, unsigned mask) {
    const auto bits = static_cast<unsigned>(value >> done & mask);
    bytes[byte] = static_cast<uint8_t>((bytes[byte] & ~(mask << shift)) | bits << shift);
  });
}

uint64_t from_bytes(std::span<const uint8_t> data) {
  uint64_t value = 0;
  for (size_t i = std::min(data.size(), sizeof value); i-- > 0;) value = value << 8 | data[i];
  return value;
}

}  // namespace

uint64_t Signal::raw() const {
  if (m_group->definition().raw_bytes) return from_bytes(m_group->bytes());
  return read_bits(m_group->bytes(), m_definition->start_bit, m_definition->width);
}

double Signal::value_scaled() const {
  const uint64_t value = raw();
  if (m_definition->status(value) != SignalStatus::VALID) return std::numeric_limits<double>::quiet_NaN();
  return m_definition->scale.physical(value);
}

std::vector<uint8_t> Signal::data() const {
  const auto bytes = m_group->bytes();
  if (m_group->definition().raw_bytes) return {bytes.begin(), bytes.end()};
  std::vector<uint8_t> data(m_definition->data_bytes());
  uint64_t rest = raw();
  for (uint8_t& byte : data) {
    byte = static_cast<uint8_t>(rest);
    rest >>= 8;
  }
  return data;
}

SignalGroup::SignalGroup(std::shared_ptr<const GroupDefinition> definition, std::string_view topic)
    : m_definition(std::move(definition)),
      m_topic(topic == m_definition->tx_topic ? &m_definition->tx_topic : &m_definition->rx_topic),
      m_length(m_definition->length) {
  m_bytes.fill(0xFF);
}

void SignalGroup::assign(std::span<const uint8_t> bytes) {
  m_length = bytes.size();
  std::copy(bytes.begin(), bytes.end(), m_bytes.begin());
}

std::optional<Signal> SignalGroup::signal(std::string_view name) const& {
  const SignalDefinition* definition = is_valid() ? m_definition->signal(name) : nullptr;
  if (definition == nullptr) return std::nullopt;
  return Signal(*this, *definition);
}

std::vector<Signal> SignalGroup::signals() const& {
  std::vector<Signal> signals;
  if (!is_valid()) return signals;
  for (const SignalDefinition& each : m_definition->signals) signals.push_back(Signal(*this, each));
  return signals;
}

bool SignalGroup::set_signal_scaled_value(std::string_view name, double value) {
  const SignalDefinition* definition = is_valid() ? m_definition->signal(name) : nullptr;
  if (definition == nullptr || m_definition->raw_bytes) return false;
  const double nearest = definition->scale.nearest_raw(value);
  const bool is_whole = nearest >= 0 && nearest < 0x1p64;  // false for NaN
  const uint64_t raw = is_whole ? static_cast<uint64_t>(nearest) : 0;
  const bool is_valid_raw = is_whole && raw <= definition->max_valid_raw();
  write_bits(m_bytes, definition->start_bit, definition->width, is_valid_raw ? raw : definition->max_raw());
  return is_valid_raw;
}

bool SignalGroup::set_signal_data(std::string_view name, std::span<const uint8_t> data) {
  const SignalDefinition* definition = is_valid() ? m_definition->signal(name) : nullptr;
  if (definition == nullptr) return false;
  if (m_definition->raw_bytes) {
    if (data.empty() || data.size() > m_bytes.size()) return false;
    assign(data);
    return true;
  }
  if (data.size() != definition->data_bytes()) return false;
  const bool all_ones = std::all_of(data.begin(), data.end(), [](uint8_t byte) { return byte == 0xFF; });
  const uint64_t raw = all_ones ? definition->max_raw() : from_bytes(data);
  if (raw > definition->max_raw()) return false;
  write_bits(m_bytes, definition->start_bit, definition->width, raw);
  return true;
}

}  // namespace ecu::koru::rt
