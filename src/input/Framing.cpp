// Cuts the receiver's byte stream into NMEA lines and UBX messages, in place.

#include <algorithm>
#include <string_view>

#include "input/SerialInput.h"
#include "platform/base/Bytes.h"
#include "wire/HexDump.h"
#include "wire/NmeaLine.h"
#include "wire/ServiceLog.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

namespace {

constexpr unsigned char UBX_SYNC_1 = 0xB5;
constexpr unsigned char UBX_SYNC_2 = 0x62;
constexpr int UBX_SYNC_LEN = 2;
constexpr int UBX_FRAME_OVERHEAD = 8;  // sync, class, id, length, checksum
constexpr int UBX_LENGTH_OFFSET = 4;   // u16 little-endian
constexpr int WORD = sizeof(uint64_t);
constexpr unsigned char CR = '\r';
constexpr unsigned char LF = '\n';

std::string hexText(const unsigned char* data, int len) {
  return hexDumpMessage(data, len, 0, 0, true);
}

constexpr bool isLineByte(unsigned char c) {
  return (c >= 0x20 && c <= 0x7E) || c == CR;
}

}  // namespace

void SerialInput::discard(int bytes) {
  m_front += bytes;
  m_bytes_waiting -= bytes;
  m_bytes_discarded += bytes;
  m_bytes_scanned = 0;
}

bool SerialInput::parseLine() {
  const unsigned char* const item = getBuffer();
  if (item[0] == UBX_SYNC_1 && item[1] == UBX_SYNC_2) return parseUbloxLine();
  if (item[0] == '$') {
    if (parseForEndOfLine()) return true;
    if (m_bytes_waiting <= m_max_nmea_len || getBuffer() != item) return false;
    // An over-long line is handed on as one item: validation rejects it and the next read() removes it.
    m_bytes_read = m_bytes_waiting;
    m_bytes_scanned = 0;
    return true;
  }
  discardUntilSync();
  return false;
}

void SerialInput::discardUntilSync() {
  const unsigned char* const bytes = getBuffer();
  const int sync =
      GnssUtils::find2CharsInString(bytes, '$', UBX_SYNC_1, static_cast<unsigned>(m_bytes_waiting));
  const bool log = GnssUtils::debugIt(logflag::FRAMING);
  if (sync == -1) {
    if (log) {
      LOG.detail("SerialInput::parseLine() == -1. No valid SYNC bytes. Discard ", m_bytes_waiting, " ",
                 hexText(bytes, m_bytes_waiting));
    }
    discard(m_bytes_waiting);
    return;
  }
  if (log) LOG.detail("SerialInput::parseLine() Found SYNC. Discard ", sync, " bytes ", hexText(bytes, sync));
  discard(sync);
}

bool SerialInput::parseForEndOfLine() {
  unsigned char* const line = getBuffer();
  int i = m_bytes_scanned;
  while (i + WORD <= m_bytes_waiting && bytes::notPrintable(bytes::load(line + i)) == 0) i += WORD;
  while (i < m_bytes_waiting && isLineByte(line[i])) ++i;
  m_bytes_scanned = i;
  if (i == m_bytes_waiting) return false;
  const bool log = GnssUtils::debugIt(logflag::FRAMING);
  if (line[i] != LF) {
    if (log) LOG.detail("parseForEndOfLine detected corrupt data. Resync for start of message.");
    discard(1);
    return false;
  }
  if (line[i - 1] != CR) {
    if (log) LOG.detail("parseForEndOfLine No CR in message. Resync for start of message.");
    discard(1);
    return false;
  }
  line[i] = 0;
  m_bytes_read = i + 1;
  m_bytes_scanned = 0;
  if (GnssUtils::debugIt(logflag::READS)) {
    LOG.detail("m_bytes_read set to ", m_bytes_read, " m_bytes_waiting ", m_bytes_waiting, " *char_ptr hex ",
               logging::hex(line[i], 2));
  }
  return true;
}

bool SerialInput::parseUbloxLine() {
  if (m_bytes_waiting < UBX_FRAME_OVERHEAD) return false;
  const unsigned char* const frame = getBuffer();
  const int ublox_payload_len = frame[UBX_LENGTH_OFFSET] | frame[UBX_LENGTH_OFFSET + 1] << 8;
  const int length = ublox_payload_len + UBX_FRAME_OVERHEAD;
  const bool log = GnssUtils::debugIt(logflag::FRAMING);
  if (m_bytes_waiting < length) {
    if (ublox_payload_len <= m_max_ublox_payload) return false;
    if (log) {
      LOG.detail("parseUbloxLine ublox_payload_len ", ublox_payload_len,
                 " too large. Resync for start of message.");
    }
    discard(UBX_SYNC_LEN);
    return false;
  }
  if (GnssUtils::isUbloxChecksumCorrect(frame, static_cast<unsigned>(length))) {
    m_bytes_read = length;
    return true;
  }
  if (log) {
    LOG.detail("Bad Ublox checksum. ublox_payload_len ", ublox_payload_len, " bytes waiting ",
               m_bytes_waiting, " ", hexText(frame, m_bytes_waiting));
  }
  discard(UBX_SYNC_LEN);
  return false;
}

}  // namespace ecu::koru::gpspub
