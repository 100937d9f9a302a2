#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::koru::sim {

/// Class and id of a UBX message.
struct UbxId {
  uint8_t message_class = 0, id = 0;
  auto operator<=>(const UbxId&) const = default;
};

/// A UBX message without its sync bytes, length and checksum.
struct UbxFrame {
  UbxId id;
  std::vector<uint8_t> payload;
};

/// The bytes on the wire, checksum included. The payload is at most 65535 bytes.
[[nodiscard]] std::string encode(const UbxFrame& frame);

/// The little-endian number of `width` bytes (1 to 4) at `offset`; what lies beyond the end counts as 0.
[[nodiscard]] uint32_t number_at(std::span<const uint8_t> bytes, size_t offset, size_t width);
/// Writes it there; beyond the end nothing is written.
void put_number(std::span<uint8_t> bytes, size_t offset, size_t width, uint32_t value);

/// Finds UBX frames in a host's byte stream. Whatever is no frame is skipped; after a wrong checksum the
/// search goes on behind its first byte, so that a false beginning hides no true frame. Keeps at most one
/// frame.
class UbxFramer {
 public:
  /// Longer ones are no commands.
  static constexpr size_t max_payload = 512;

  struct Found {
    UbxFrame frame;
    bool intact;  ///< the checksum is right
  };

  void add(uint8_t byte) { m_bytes.push_back(byte); }
  /// To be called after each add() until nothing is found any more.
  [[nodiscard]] std::optional<Found> next();
  /// Whether the beginning of a frame waits for its rest.
  [[nodiscard]] bool waiting() const { return !m_bytes.empty(); }
  void clear() { m_bytes.clear(); }

 private:
  void skip_to_sync();

  std::vector<uint8_t> m_bytes;
};

}  // namespace ecu::koru::sim
