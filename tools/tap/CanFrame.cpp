#include "tools/tap/CanFrame.h"

#include <array>
#include <cstdio>

namespace ecu::koru::tap {

namespace {

constexpr size_t MAX_CLASSIC_LENGTH = 8;
constexpr uint8_t DEFAULT_SOURCE_ADDRESS = 0x1C;  // a frame on a real bus needs a sender

uint32_t frame_id(const rt::GroupDefinition& group, std::optional<uint8_t> source_address) {
  if (!group.extended) return group.can_id;
  const auto own = static_cast<uint8_t>(group.can_id);
  const uint8_t otherwise = own == ANY_SOURCE_ADDRESS ? DEFAULT_SOURCE_ADDRESS : own;
  return (group.can_id & ~uint32_t{0xFF}) | source_address.value_or(otherwise);
}

}  // namespace

std::string can_id_text(uint32_t can_id, bool extended) {
  std::array<char, 16> out{};
  (void)std::snprintf(out.data(), out.size(), "%0*X", extended ? 8 : 3, can_id);
  return out.data();
}

std::string candump_line(int64_t wall_us, std::string_view interface, const rt::SignalGroup& group,
                         std::optional<uint8_t> source_address) {
  const auto& definition = group.definition();
  std::array<char, 48> time{};
  (void)std::snprintf(time.data(), time.size(), "(%lld.%06lld) ", static_cast<long long>(wall_us / 1'000'000),
                      static_cast<long long>(wall_us % 1'000'000));
  std::string out = time.data();
  out.append(interface).append(" ");
  out.append(can_id_text(frame_id(definition, source_address), definition.extended));
  out.append(group.bytes().size() > MAX_CLASSIC_LENGTH ? "##0" : "#");
  for (const uint8_t byte : group.bytes()) {
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    out.append({DIGITS[byte >> 4], DIGITS[byte & 0xF]});
  }
  return out.append("\n");
}

}  // namespace ecu::koru::tap
