#include "input/ReceiveBuffer.h"

#include <algorithm>
#include <cstring>

#include "platform/base/Bytes.h"
#include "wire/HexDump.h"
#include "wire/NmeaLine.h"
#include "wire/ServiceLog.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int MIN_ITEM_LEN = 2;
constexpr int WORD = sizeof(uint64_t);
constexpr unsigned char CR = '\r';
constexpr unsigned char LF = '\n';

constexpr bool isLineByte(unsigned char c) {
  return (c >= 0x20 && c <= 0x7E) || c == CR;
}

}  // namespace

// -- Bytes in

std::span<unsigned char> ReceiveBuffer::freeTail() {
  if (m_front > 0) {
    std::memmove(m_buffer.get(), begin(), static_cast<size_t>(m_bytes_waiting));
    m_front = 0;
  }
  return {begin() + m_bytes_waiting, static_cast<size_t>(freeBytes())};
}

void ReceiveBuffer::append(std::span<const unsigned char> bytes) {
  const auto fitting = bytes.first(std::min(bytes.size(), static_cast<size_t>(freeBytes())));
  if (static_cast<size_t>(freeBytesAtTheEnd()) < fitting.size()) (void)freeTail();
  std::copy(fitting.begin(), fitting.end(), begin() + m_bytes_waiting);
  add(static_cast<int>(fitting.size()));
  const auto lost = static_cast<long long>(bytes.size() - fitting.size());
  m_bytes_received += lost;
  m_bytes_discarded += lost;
}

void ReceiveBuffer::dump(const char* text) {
  LOG.detail(logflag::READS, text, [&] { return hexLines(begin(), m_bytes_waiting); });
  m_bytes_discarded += m_bytes_waiting;
  clear();
}

void ReceiveBuffer::drop() {
  m_bytes_discarded += m_bytes_waiting - m_bytes_read;
  clear();
}

void ReceiveBuffer::clear() {
  m_front = 0;
  m_bytes_waiting = 0;
  m_bytes_read = 0;
  m_item_kind = ItemKind::NONE;
  m_bytes_scanned = 0;
}

void ReceiveBuffer::discard(int bytes) {
  m_front += bytes;
  m_bytes_waiting -= bytes;
  m_bytes_discarded += bytes;
  m_bytes_scanned = 0;
}

// -- Items out

bool ReceiveBuffer::nextItem(const char* text) {
  removeFramedItem();
  if (m_bytes_waiting < MIN_ITEM_LEN) return false;
  if (frameItem()) return true;
  LOG.detail(logflag::READS_PARSED, text, m_bytes_waiting);
  return false;
}

void ReceiveBuffer::removeFramedItem() {
  if (m_bytes_read > m_bytes_waiting || m_bytes_waiting > m_buffer_size) clear();
  m_front += m_bytes_read;
  m_bytes_waiting -= m_bytes_read;
  m_bytes_read = 0;
  m_item_kind = ItemKind::NONE;
  if (m_bytes_waiting == 0) m_front = 0;
}

bool ReceiveBuffer::frameNewBytes(int unpaced_bytes) {
  m_unframed_bytes += unpaced_bytes;
  return frameItem();
}

bool ReceiveBuffer::frameItem() {
  while (m_bytes_waiting >= MIN_ITEM_LEN) {
    const auto discarded = m_bytes_discarded;
    if (parseLine()) return true;
    if (m_bytes_discarded == discarded) return false;
  }
  return false;
}

void ReceiveBuffer::setItem(ItemKind kind, int length) {
  m_item_kind = kind;
  m_bytes_read = length;
  m_bytes_scanned = 0;
  m_unframed_bytes = 0;
  ++m_num_lines;
}

bool ReceiveBuffer::parseLine() {
  const unsigned char* const item = begin();
  if (item[0] == ubx::SYNC_1 && item[1] == ubx::SYNC_2) return parseUbloxLine();
  if (item[0] == '$') {
    if (parseForEndOfLine()) return true;
    if (m_bytes_waiting <= m_max_nmea_len || begin() != item) return false;
    setItem(ItemKind::OVER_LONG, m_bytes_waiting);
    return true;
  }
  discardUntilSync();
  return false;
}

void ReceiveBuffer::discardUntilSync() {
  const unsigned char* const bytes = begin();
  const int sync =
      GnssUtils::find2CharsInString(bytes, '$', ubx::SYNC_1, static_cast<unsigned>(m_bytes_waiting));
  const bool found = sync != -1;
  const int garbage = found ? sync : m_bytes_waiting;
  LOG.detail(logflag::FRAMING,
             found ? "SerialInput::parseLine() Found SYNC. Discard "
                   : "SerialInput::parseLine() == -1. No valid SYNC bytes. Discard ",
             garbage, found ? " bytes " : " ", [&] { return hexText(bytes, garbage); });
  discard(garbage);
}

bool ReceiveBuffer::parseForEndOfLine() {
  unsigned char* const line = begin();
  int i = m_bytes_scanned;
  while (i + WORD <= m_bytes_waiting && bytes::not_printable(bytes::load(line + i)) == 0) i += WORD;
  while (i < m_bytes_waiting && isLineByte(line[i])) ++i;
  m_bytes_scanned = i;
  if (i == m_bytes_waiting) return false;
  if (line[i] != LF || line[i - 1] != CR) {
    LOG.detail(logflag::FRAMING, line[i] != LF
                                     ? "parseForEndOfLine detected corrupt data. Resync for start of message."
                                     : "parseForEndOfLine No CR in message. Resync for start of message.");
    discard(1);
    return false;
  }
  line[i] = 0;
  LOG.detail(logflag::READS, "m_bytes_read set to ", i + 1, " m_bytes_waiting ", m_bytes_waiting,
             " *char_ptr hex ", logging::hex(line[i], 2));
  setItem(ItemKind::NMEA_LINE, i + 1);
  return true;
}

bool ReceiveBuffer::parseUbloxLine() {
  const std::span<const unsigned char> held(begin(), static_cast<size_t>(m_bytes_waiting));
  if (held.size() < ubx::OVERHEAD_LEN) return false;
  const int ublox_payload_len = ubx::u16(held, ubx::LENGTH_OFFSET);
  const size_t length = ubx::frameLength(held);
  if (held.size() < length) {
    if (ublox_payload_len <= m_max_ublox_payload) return false;
    LOG.detail(logflag::FRAMING, "parseUbloxLine ublox_payload_len ", ublox_payload_len,
               " too large. Resync for start of message.");
  } else {
    if (GnssUtils::isUbloxChecksumCorrect(held.data(), static_cast<unsigned>(length))) {
      setItem(ItemKind::UBX_FRAME, static_cast<int>(length));
      return true;
    }
    ++m_bad_ubx_checksums;
    LOG.detail(logflag::FRAMING, "Bad Ublox checksum. ublox_payload_len ", ublox_payload_len,
               " bytes waiting ", m_bytes_waiting, " ",
               [&] { return hexText(held.data(), m_bytes_waiting); });
  }
  discard(ubx::SYNC_LEN);
  return false;
}

}  // namespace ecu::koru::gpspub
