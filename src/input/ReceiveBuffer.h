#pragma once

#include <memory>
#include <span>

#include "input/IGnssInput.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

/// The receive buffer of an input: bytes in, items out.
///
/// The byte stream mixes NMEA lines ("$" ... CR LF) and UBX frames. One item at a time is framed in place;
/// corrupt bytes are dropped from the front and counted. In a framed NMEA line the LF is overwritten with
/// NUL. A first UBX sync byte without the second stops framing until the buffer overflows or is cleared. The
/// receiver never sends that byte outside a UBX header. Owned by its input, service thread only.
class ReceiveBuffer {
 public:
  static constexpr int INPUT_BUFFER_SIZE = 10240;

  // -- Bytes in

  /// Makes the free end of the buffer as long as possible and returns it. A device reads straight into it.
  [[nodiscard]] std::span<unsigned char> freeTail();
  /// Adds the first bytes of the free end to those held.
  void add(int bytes) {
    m_bytes_waiting += bytes;
    m_bytes_received += bytes;
  }
  /// Appends to the bytes already held, which move only if they must. Bytes that do not fit are dropped.
  void append(std::span<const unsigned char> bytes);
  [[nodiscard]] int freeBytes() const { return m_buffer_size - m_bytes_waiting; }
  /// Returns how many bytes fit without a move.
  [[nodiscard]] int freeBytesAtTheEnd() const { return freeBytes() - m_front; }
  /// Drops and counts all bytes. `text` begins the log record.
  void dump(const char* text);
  /// Drops all bytes and counts those that are in no item.
  void drop();

  // -- Items out

  /// Removes the framed item and tries to frame the next one from the bytes held. `text` begins the log
  /// record of a failure.
  [[nodiscard]] bool nextItem(const char* text);
  /// Tries to frame an item after bytes were added. `unpaced_bytes` of them came from a source that can
  /// deliver without limit (a file, or an SPI bus that floats).
  [[nodiscard]] bool frameNewBytes(int unpaced_bytes);
  /// Returns true if so many unpaced bytes came without an item that the source cannot be a receiver.
  [[nodiscard]] bool isFlooded() const { return m_unframed_bytes > MAX_UNFRAMED; }
  void forgetUnpacedBytes() { m_unframed_bytes = 0; }

  [[nodiscard]] ItemKind itemKind() const { return m_item_kind; }
  /// Returns the start of the bytes held, where the framed item begins.
  [[nodiscard]] unsigned char* begin() { return m_buffer.get() + m_front; }
  /// Returns the length of the framed item, or 0 before an item is framed.
  [[nodiscard]] int bytesRead() const { return m_bytes_read; }
  /// Returns how many bytes are held, including the framed item.
  [[nodiscard]] int bytesWaiting() const { return m_bytes_waiting; }
  /// Returns the bytes dropped since construction, by resynchronisation or overflow.
  [[nodiscard]] long long bytesDiscarded() const { return m_bytes_discarded; }
  [[nodiscard]] InputCounts counts() const {
    return {static_cast<uint64_t>(m_bytes_received), static_cast<uint64_t>(m_bytes_discarded),
            m_bad_ubx_checksums};
  }
  [[nodiscard]] int numLines() const { return m_num_lines; }
  void setNumLines(int lines) { m_num_lines = lines; }

 private:
  static constexpr int MAX_UNFRAMED = 65536;

  void removeFramedItem();
  /// Tries to frame one item, and tries again as long as that drops bytes.
  [[nodiscard]] bool frameItem();
  // The parsers return true if a complete item begins at the front.
  [[nodiscard]] bool parseLine();
  [[nodiscard]] bool parseForEndOfLine();
  [[nodiscard]] bool parseUbloxLine();
  void setItem(ItemKind kind, int length);
  void discardUntilSync();
  void clear();
  void discard(int bytes);

  std::unique_ptr<unsigned char[]> m_buffer = std::make_unique<unsigned char[]>(INPUT_BUFFER_SIZE);
  int m_buffer_size = INPUT_BUFFER_SIZE;
  int m_max_nmea_len = 4096;
  int m_max_ublox_payload = static_cast<int>(ubx::MAX_PAYLOAD);
  int m_front = 0;          // where the held bytes begin; freeTail() moves them down
  int m_bytes_waiting = 0;  // bytes held, the framed item included
  int m_bytes_read = 0;     // length of the framed item, removed by nextItem()
  ItemKind m_item_kind = ItemKind::NONE;
  int m_bytes_scanned = 0;  // bytes of the incomplete front line without LF
  long long m_bytes_received = 0;
  long long m_bytes_discarded = 0;
  uint64_t m_bad_ubx_checksums = 0;
  int m_unframed_bytes = 0;  // unpaced bytes since the last item
  int m_num_lines = 0;       // items framed
};

}  // namespace ecu::koru::gpspub
