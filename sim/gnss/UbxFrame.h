#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::koru::sim {

struct UbxId {
  uint8_t message_class = 0, id = 0;
  auto operator<=>(const UbxId&) const = default;
};

/// A UBX message without its sync bytes, length and checksum.
struct UbxFrame {
  UbxId id;
  std::vector<uint8_t> payload;
};

/// Returns the bytes on the wire, with the checksum. The payload may have at most 65535 bytes.
[[nodiscard]] std::string encode(const UbxFrame& frame);

/// Returns the size on the wire of the frame that `bytes` begin with; 0 if there is none, it is not complete
/// or its checksum is wrong.
[[nodiscard]] size_t intact_frame_size(std::string_view bytes);

/// Returns the little-endian number of `width` bytes (1 to 4) at `offset`. Bytes beyond the end count as 0.
[[nodiscard]] uint32_t number_at(std::span<const uint8_t> bytes, size_t offset, size_t width);
/// Writes such a number. Nothing is written beyond the end.
void put_number(std::span<uint8_t> bytes, size_t offset, size_t width, uint32_t value);

/// Finds UBX frames in a host's byte stream and skips everything else. After a wrong checksum the search
/// continues at the second byte, so that a false start hides no true frame. Keeps at most one frame.
class UbxFramer {
 public:
  /// A longer frame is not a command.
  static constexpr size_t MAX_PAYLOAD = 512;

  struct Found {
    UbxFrame frame;
    bool intact;  ///< the checksum is correct
  };

  void add(uint8_t byte) { m_bytes.push_back(byte); }
  /// Returns the next frame. After each add(), call it until it returns empty.
  [[nodiscard]] std::optional<Found> next();
  void clear() { m_bytes.clear(); }

 private:
  void skip_to_sync();

  std::vector<uint8_t> m_bytes;
};

}  // namespace ecu::koru::sim
