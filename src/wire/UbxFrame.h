#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace ecu::koru::gpspub {

/// UBX message classes and ids, as the u-blox protocol names them.
namespace ubx {

inline constexpr uint8_t NAV = 0x01;
inline constexpr uint8_t RXM = 0x02;
inline constexpr uint8_t ACK = 0x05;
inline constexpr uint8_t CFG = 0x06;
inline constexpr uint8_t MON = 0x0A;

inline constexpr uint8_t NAV_TIMEUTC = 0x21;
inline constexpr uint8_t RXM_PMREQ = 0x41;
inline constexpr uint8_t ACK_NAK = 0x00;
inline constexpr uint8_t ACK_ACK = 0x01;
inline constexpr uint8_t CFG_PRT = 0x00;
inline constexpr uint8_t CFG_MSG = 0x01;
inline constexpr uint8_t CFG_RST = 0x04;
inline constexpr uint8_t CFG_RATE = 0x08;
inline constexpr uint8_t CFG_CFG = 0x09;
inline constexpr uint8_t CFG_RXM = 0x11;
inline constexpr uint8_t CFG_ANT = 0x13;
inline constexpr uint8_t CFG_NMEA = 0x17;
inline constexpr uint8_t CFG_NAV5 = 0x24;
inline constexpr uint8_t CFG_GNSS = 0x3E;
inline constexpr uint8_t MON_VER = 0x04;
inline constexpr uint8_t MON_HW = 0x09;
inline constexpr uint8_t MON_GNSS = 0x28;

// A frame is sync, class, id, payload length, payload and checksum. Numbers are little-endian.
inline constexpr uint8_t SYNC_1 = 0xB5;
inline constexpr uint8_t SYNC_2 = 0x62;
inline constexpr size_t SYNC_LEN = 2;
inline constexpr size_t CLASS_OFFSET = 2;
inline constexpr size_t ID_OFFSET = 3;
inline constexpr size_t LENGTH_OFFSET = 4;
inline constexpr size_t HEADER_LEN = 6;
inline constexpr size_t CHECKSUM_LEN = 2;
inline constexpr size_t OVERHEAD_LEN = HEADER_LEN + CHECKSUM_LEN;
inline constexpr size_t MAX_PAYLOAD = 4096;  // a longer one counts as corrupt

// These return a little-endian number at an offset of a payload. Bytes beyond its end read as 0, so that a
// length that was not checked cannot reach foreign memory.
[[nodiscard]] constexpr uint8_t u8(std::span<const uint8_t> payload, size_t at) {
  return at < payload.size() ? payload[at] : uint8_t{0};
}
[[nodiscard]] constexpr uint16_t u16(std::span<const uint8_t> payload, size_t at) {
  return static_cast<uint16_t>(u8(payload, at) | u8(payload, at + 1) << 8);
}
[[nodiscard]] constexpr uint32_t u32(std::span<const uint8_t> payload, size_t at) {
  return u16(payload, at) | uint32_t{u16(payload, at + 2)} << 16;
}

/// Stores an unsigned number at an offset of a payload. Bytes beyond its end are dropped.
constexpr void store(std::span<uint8_t> payload, size_t at, std::unsigned_integral auto value) {
  for (size_t i = 0; i < sizeof value && at + i < payload.size(); ++i)
    payload[at + i] = static_cast<uint8_t>(value >> 8 * i);
}

/// Returns the length of the whole frame that begins with a header.
[[nodiscard]] constexpr size_t frameLength(std::span<const uint8_t> header) {
  return u16(header, LENGTH_OFFSET) + OVERHEAD_LEN;
}

/// The two checksum bytes of a frame, in their order.
using Checksum = std::array<uint8_t, 2>;

/// Returns a frame with the given checksum. GnssUtils::fixUbloxChecksum() corrects it before sending.
[[nodiscard]] std::string frame(uint8_t cls, uint8_t id, std::span<const uint8_t> payload,
                                const Checksum& stored);

}  // namespace ubx

/// A received frame whose length was checked, borrowed from the input's buffer.
class UbxFrame {
 public:
  /// `bytes` is the whole frame, sync to checksum.
  explicit UbxFrame(std::span<const uint8_t> bytes) : m_bytes(bytes) {}

  [[nodiscard]] uint8_t cls() const { return ubx::u8(m_bytes, ubx::CLASS_OFFSET); }
  [[nodiscard]] uint8_t id() const { return ubx::u8(m_bytes, ubx::ID_OFFSET); }
  [[nodiscard]] std::span<const uint8_t> payload() const {
    return m_bytes.size() < ubx::OVERHEAD_LEN
               ? std::span<const uint8_t>()
               : m_bytes.subspan(ubx::HEADER_LEN, m_bytes.size() - ubx::OVERHEAD_LEN);
  }
  [[nodiscard]] std::string text() const { return {m_bytes.begin(), m_bytes.end()}; }
  [[nodiscard]] std::span<const uint8_t> bytes() const { return m_bytes; }

 private:
  std::span<const uint8_t> m_bytes;
};

/// The UBX checksum: 8-bit Fletcher over class to payload. `buf` is the whole frame with its sync and
/// checksum bytes.
namespace GnssUtils {

void calcUbloxChecksum(const unsigned char* buf, unsigned len, unsigned char* a, unsigned char* b);
[[nodiscard]] bool isUbloxChecksumCorrect(const unsigned char* buf, unsigned len);
/// Writes the right checksum into the last two bytes. Returns false and changes nothing below 8 bytes.
[[nodiscard]] bool fixUbloxChecksum(std::string& msg);

}  // namespace GnssUtils

}  // namespace ecu::koru::gpspub
