#include "sim/gnss/UbxFrame.h"

#include <algorithm>

namespace ecu::koru::sim {
namespace {

constexpr uint8_t SYNC_1 = 0xB5;
constexpr uint8_t SYNC_2 = 0x62;
constexpr size_t HEADER_SIZE = 6;  // sync, class, id, length
constexpr size_t FRAME_OVERHEAD = HEADER_SIZE + 2;

struct Checksum {
  uint8_t a = 0, b = 0;
  void add(uint8_t byte) {
    a = static_cast<uint8_t>(a + byte);
    b = static_cast<uint8_t>(b + a);
  }
};

bool checksum_fits(std::span<const uint8_t> frame) {
  Checksum sum;
  for (const uint8_t byte : frame.subspan(2, frame.size() - 4)) sum.add(byte);
  return frame[frame.size() - 2] == sum.a && frame[frame.size() - 1] == sum.b;
}

}  // namespace

std::string encode(const UbxFrame& frame) {
  std::vector<uint8_t> bytes{SYNC_1, SYNC_2, frame.id.message_class, frame.id.id, 0, 0};
  put_number(bytes, 4, 2, static_cast<uint32_t>(frame.payload.size()));
  bytes.insert(bytes.end(), frame.payload.begin(), frame.payload.end());
  Checksum sum;
  for (const uint8_t byte : std::span(bytes).subspan(2)) sum.add(byte);
  bytes.insert(bytes.end(), {sum.a, sum.b});
  return {bytes.begin(), bytes.end()};
}

size_t intact_frame_size(std::string_view bytes) {
  if (bytes.size() < FRAME_OVERHEAD || !bytes.starts_with("\xB5\x62")) return 0;
  const std::span all(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  const size_t size = number_at(all, 4, 2) + FRAME_OVERHEAD;
  return size <= all.size() && checksum_fits(all.first(size)) ? size : 0;
}

uint32_t number_at(std::span<const uint8_t> bytes, size_t offset, size_t width) {
  uint32_t value = 0;
  for (size_t i = 0; i < width && offset + i < bytes.size(); ++i)
    value |= static_cast<uint32_t>(bytes[offset + i]) << (8 * i);
  return value;
}

void put_number(std::span<uint8_t> bytes, size_t offset, size_t width, uint32_t value) {
  for (size_t i = 0; i < width && offset + i < bytes.size(); ++i)
    bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

void UbxFramer::skip_to_sync() {
  auto at = m_bytes.begin();
  while ((at = std::find(at, m_bytes.end(), SYNC_1)) != m_bytes.end()) {
    if (at + 1 == m_bytes.end() || at[1] == SYNC_2) break;
    ++at;
  }
  m_bytes.erase(m_bytes.begin(), at);
}

std::optional<UbxFramer::Found> UbxFramer::next() {
  while (true) {
    skip_to_sync();
    if (m_bytes.size() < HEADER_SIZE) return std::nullopt;
    const size_t length = number_at(m_bytes, 4, 2);
    if (length > MAX_PAYLOAD) {
      m_bytes.erase(m_bytes.begin());
      continue;
    }
    const size_t size = length + FRAME_OVERHEAD;
    if (m_bytes.size() < size) return std::nullopt;
    const auto end = m_bytes.begin() + static_cast<std::ptrdiff_t>(size);
    Found found{{{m_bytes[2], m_bytes[3]}, {m_bytes.begin() + HEADER_SIZE, end - 2}},
                checksum_fits(std::span(m_bytes).first(size))};
    m_bytes.erase(m_bytes.begin(), found.intact ? end : m_bytes.begin() + 1);
    return found;
  }
}

}  // namespace ecu::koru::sim
