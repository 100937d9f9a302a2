#include "ublox/UbxFrame.h"

namespace ecu::koru::gpspub::ubx {

std::string frame(uint8_t cls, uint8_t id, std::span<const uint8_t> payload, const Checksum& stored) {
  const auto length = payload.size();
  std::string bytes{static_cast<char>(0xB5),          static_cast<char>(0x62),
                    static_cast<char>(cls),           static_cast<char>(id),
                    static_cast<char>(length & 0xFF), static_cast<char>(length >> 8 & 0xFF)};
  bytes.append(payload.begin(), payload.end());
  bytes.append(stored.begin(), stored.end());
  return bytes;
}

}  // namespace ecu::koru::gpspub::ubx
