#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub::ubx {

std::string frame(uint8_t cls, uint8_t id, std::span<const uint8_t> payload, const Checksum& stored) {
  std::array<uint8_t, HEADER_LEN> header{SYNC_1, SYNC_2, cls, id};
  store(header, LENGTH_OFFSET, static_cast<uint16_t>(payload.size()));
  std::string bytes(header.begin(), header.end());
  bytes.append(payload.begin(), payload.end());
  bytes.append(stored.begin(), stored.end());
  return bytes;
}

}  // namespace ecu::koru::gpspub::ubx

namespace ecu::koru::gpspub::GnssUtils {

void calcUbloxChecksum(const unsigned char* buf, unsigned len, unsigned char* a, unsigned char* b) {
  unsigned sum_a = 0;
  unsigned sum_b = 0;
  for (unsigned i = ubx::SYNC_LEN; i + ubx::CHECKSUM_LEN < len; ++i) {
    sum_a = (sum_a + buf[i]) & 0xFF;
    sum_b = (sum_b + sum_a) & 0xFF;
  }
  *a = static_cast<unsigned char>(sum_a);
  *b = static_cast<unsigned char>(sum_b);
}

bool isUbloxChecksumCorrect(const unsigned char* buf, unsigned len) {
  if (len < ubx::CHECKSUM_LEN) return false;
  unsigned char a = 0;
  unsigned char b = 0;
  calcUbloxChecksum(buf, len, &a, &b);
  return buf[len - 2] == a && buf[len - 1] == b;
}

bool fixUbloxChecksum(std::string& msg) {
  if (msg.size() < ubx::OVERHEAD_LEN) return false;
  auto* frame = reinterpret_cast<unsigned char*>(msg.data());
  const auto len = static_cast<unsigned>(msg.size());
  calcUbloxChecksum(frame, len, frame + len - 2, frame + len - 1);
  return true;
}

}  // namespace ecu::koru::gpspub::GnssUtils
