#include "nmea/EpochAssembly.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "nmea/NmeaParsers.h"
#include "nmea/UtcCalendar.h"
#include "wire/NmeaLine.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int64_t EXTRA_DATA_US = 950'000;
constexpr int64_t FRAME_GAP_US = 950'000;  // for a fix that does not begin a new second
constexpr int64_t SILENCE_TIMEOUT_US = 1'000'000;
constexpr int64_t EPOCH_TIMEOUT_US = 1'300'000;
constexpr int64_t BURST_US = 300'000;  // an epoch that has just begun is not cut short
constexpr size_t MIN_OVERDUE_SENTENCES = 3;
constexpr size_t MIN_COMPLETE_SENTENCES = 4;
constexpr size_t MAX_SENTENCES = 100;
constexpr int64_t BITS_PER_BYTE_MS = 10'000;  // 10 bits a byte, times 1000 ms a second
constexpr int64_t NS_PER_MS = 1'000'000;

/// Returns a different number for each UTC second, or -1 without a date. A leap second has the time stamp of
/// the second after it, hence the factor 2.
int64_t utcSecond(const std::tm& utc) {
  if (utc.tm_mday == 0) return -1;
  return 2 * secondsSinceEpoch(utc) + (utc.tm_sec >= 60 ? 1 : 0);
}

/// Returns the three characters after the talker, such as "RMC".
std::string_view sentenceType(std::string_view sentence) {
  return sentence.size() >= 6 ? sentence.substr(3, 3) : std::string_view();
}

}  // namespace

EpochAssembly::EpochAssembly(IEpochOwner& owner) : m_owner(owner) {}

void EpochAssembly::setDataTime(int64_t data_time_us, int64_t data_time_ns) {
  m_data_time_us = data_time_us;
  m_data_time_ns = data_time_ns;
}

bool EpochAssembly::validateNmeaMessage(std::span<const unsigned char> line) {
  const auto length = static_cast<unsigned>(line.size());
  const std::string_view text(reinterpret_cast<const char*>(line.data()), line.size());
  if (!GnssUtils::isValidNmeaMessage(line.data(), length)) {
    ++m_counts.rejected;
    LOG.detail(logflag::NMEA_VALIDATION, " Nmea invalid. message rejected. bytes_read ", length, " ",
               [&] { return logging::escaped(text.substr(0, text.find('\0'))); });
    return false;
  }
  ++m_counts.sentences;
  m_nmea_string.assign(text.substr(0, text.find('\0')));
  m_nmea_string.push_back('\n');
  if (sentenceType(m_nmea_string) == "RMC") {
    ++m_counts.rmc;
    m_prev_rmc_time = m_rmc_time;
    m_rmc_time = m_data_time_us;
  }
  LOG.detail(logflag::NMEA_VALIDATION, " VALID NMEA len ", length, " ",
             [&] { return logging::escaped(m_nmea_string); });
  return true;
}

void EpochAssembly::parseNmeaString() {
  const std::string_view type = sentenceType(m_nmea_string);
  if (type == "RMC") {
    GnssUtils::parseRMCString(m_nmea_string, m_gnss_info);
    if (m_gnss_info.getUtcTimeUs() != -1) m_owner.checkSetSystemTime();
  } else if (type == "GGA") {
    GnssUtils::parseGGAString(m_nmea_string, m_gnss_info);
  } else if (type == "GSA") {
    GnssUtils::parseGSAString(m_nmea_string, m_gnss_info);
  } else if (type == "GST") {
    GnssUtils::parseGSTString(m_nmea_string, m_gnss_info);
  }
}

void EpochAssembly::processNewNmeaString(unsigned baud) {
  const std::string_view type = sentenceType(m_nmea_string);
  if (type == "GST") {
    m_GST_received = true;
  } else if (type == "RMC") {
    publishOverdueEpoch();
    m_RMC_received = true;
  }
  if (m_nmea_list.size() > MAX_SENTENCES) {
    LOG.error("Error  nmea_list.size = ", m_nmea_list.size());
    dropSentences();
  }
  m_last_nmea_time = m_data_time_us;
  try {
    parseNmeaString();
  } catch (const std::logic_error& error) {  // the satellites field is not a number
    LOG.warning("sentence dropped, ", error.what(), ": ", logging::escaped(m_nmea_string));
    m_nmea_string.clear();
    return;
  }
  const bool first = m_frame_start_time == 0;
  if (first) startEpoch(baud);
  keepSentence();
  if (isComplete()) {
    LOG.detail(logflag::CONNECTION, "m_GST_received.  m_nmea_list.size() >= 4 so sendFrameAndModuleError");
    m_owner.publishGnssData();
    m_complete_published_us = m_data_time_us;
  }
}

bool EpochAssembly::isComplete() const {
  return m_GST_received && m_nmea_list.size() >= MIN_COMPLETE_SENTENCES;
}

/// Publishes the previous epoch if it never got its GST although this RMC begins a new one.
void EpochAssembly::publishOverdueEpoch() {
  const int64_t frame_sent_diff = m_data_time_us - m_frame_sent_time_stamp;
  if (m_frame_start_time == 0 || frame_sent_diff <= EXTRA_DATA_US ||
      m_nmea_list.size() < MIN_OVERDUE_SENTENCES) {
    return;
  }
  LOG.detail(logflag::FRAME_TIMING, "Extra data before RMC. frame_sent_diff ", frame_sent_diff);
  m_owner.publishGnssData();
}

void EpochAssembly::startEpoch(unsigned baud) {
  m_frame_start_time = m_data_time_us;
  const auto bytes = static_cast<int64_t>(m_nmea_string.size());
  const int64_t transmission_ms = baud > 0 ? bytes * BITS_PER_BYTE_MS / baud : 0;
  m_gnss_info.m_frame_time = m_data_time_ns - transmission_ms * NS_PER_MS;
  LOG.detail(logflag::CONNECTION, "Bytes read for start of frame ", bytes, " transmission time ",
             transmission_ms);
}

void EpochAssembly::keepSentence() {
  if (m_spare_strings.empty()) m_spare_strings.emplace_back();
  m_nmea_list.push_back(std::move(m_spare_strings.back()));
  m_spare_strings.pop_back();
  std::swap(m_nmea_list.back(), m_nmea_string);
  m_nmea_string.clear();
}

void EpochAssembly::dropSentences() {
  while (!m_nmea_list.empty()) {
    m_spare_strings.push_back(std::move(m_nmea_list.back()));
    m_nmea_list.pop_back();
  }
}

bool EpochAssembly::isTimeoutToSendFrame(int64_t now_us) const {
  const auto published_second = static_cast<uint8_t>(m_gnss_info_sent.m_utc_tm.tm_sec);
  if (m_frame_published && published_second != m_frame_second) return true;
  if (now_us < frameTimeout()) return false;
  logFrameTimeout(now_us);
  return true;
}

/// Returns when the frame times out, published or not.
int64_t EpochAssembly::frameTimeout() const {
  return m_frame_sent_time_stamp + (m_frame_start_time != 0 ? EPOCH_TIMEOUT_US : SILENCE_TIMEOUT_US) + 1;
}

void EpochAssembly::logFrameTimeout(int64_t now_us) const {
  const int64_t diff1 = now_us - m_frame_sent_time_stamp;
  if (m_frame_start_time == 0) {
    LOG.detail(logflag::FRAME_TIMING, "Timeout time since m_frame_sent_time_stamp > 1.0. Time is ", now_us);
    return;
  }
  LOG.detail(logflag::FRAME_TIMING, "Timeout time since m_frame_sent_time_stamp > 1.3. Time is ", now_us,
             " diff1 ", diff1, " frame_sent_diff ", now_us - m_last_nmea_time, " diff3 ",
             now_us - m_frame_start_time, " diff4 ", now_us - m_rmc_time, " diff5 ",
             now_us - m_prev_rmc_time);
}

bool EpochAssembly::isFrameDue(int64_t now_us, bool more_received) const {
  if (m_frame_published) {
    const int64_t second = utcSecond(m_gnss_info_sent.m_utc_tm);
    const bool new_second = second != -1 && second != m_sent_utc_second;
    return new_second || now_us - m_frame_sent_time_stamp > FRAME_GAP_US;
  }
  return now_us >= frameDue(more_received) && isTimeoutToSendFrame(now_us);
}

int64_t EpochAssembly::frameDue(bool more_received) const {
  int64_t patience_ends = 0;
  if (m_frame_start_time != 0) {
    patience_ends = m_frame_start_time + (more_received ? EPOCH_TIMEOUT_US : BURST_US) + 1;
  } else if (m_complete_published_us != -1) {
    patience_ends = m_complete_published_us + EPOCH_TIMEOUT_US + 1;
  }
  return std::max(patience_ends, frameTimeout());
}

void EpochAssembly::frameSent(int64_t now_us, const std::tm& utc) {
  m_frame_sent_time_stamp = now_us;
  m_frame_second = static_cast<uint8_t>(utc.tm_sec);
  if (const int64_t second = utcSecond(utc); second != -1) m_sent_utc_second = second;
  m_frame_published = false;
}

void EpochAssembly::rotate(uint8_t receiver_flag) {
  if (m_frame_start_time != 0) ++(isComplete() ? m_counts.complete : m_counts.incomplete);
  dropSentences();
  m_GST_received = false;
  m_RMC_received = false;
  m_gnss_info_sent = m_gnss_info;
  m_frame_published = true;
  m_complete_published_us = -1;
  m_gnss_info.clear();
  m_gnss_info.m_receiver_flag = receiver_flag;
  m_prev_frame_start_time = m_frame_start_time;
  m_frame_start_time = 0;
}

void EpochAssembly::reset(int64_t now_us) {
  dropSentences();
  m_nmea_string.clear();
  m_GST_received = false;
  m_RMC_received = false;
  m_gnss_info.clear();
  m_gnss_info_sent.clear();
  m_gnss_info.m_receiver_flag = m_gnss_info_sent.m_receiver_flag = 0;
  m_frame_start_time = 0;
  m_prev_frame_start_time = 0;
  m_rmc_time = 0;
  m_prev_rmc_time = 0;
  m_frame_published = false;
  m_frame_sent_time_stamp = now_us;
  m_complete_published_us = -1;
}

}  // namespace ecu::koru::gpspub
