#include "sim/gnss/Replay.h"

#include <optional>

#include "sim/gnss/Files.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

bool is_talker_letter(char c) {
  return c >= 'A' && c <= 'Z';
}

/// Returns where the next "$ttRMC," begins at or after `from`; npos if no further one follows.
size_t find_rmc(std::string_view bytes, size_t from) {
  constexpr size_t ADDRESS = 3;  // '$' and the talker
  for (size_t at = from; (at = bytes.find("RMC,", at)) != std::string_view::npos; ++at) {
    if (at < from + ADDRESS || bytes[at - 3] != '$') continue;
    if (is_talker_letter(bytes[at - 2]) && is_talker_letter(bytes[at - 1])) return at - ADDRESS;
  }
  return std::string_view::npos;
}

/// Returns the time of day in the RMC sentence that begins at `at`, us; empty if it has none.
std::optional<int64_t> rmc_time_us(std::string_view bytes, size_t at) {
  constexpr size_t TO_TIME = 7;  // "$GNRMC,"
  const std::string_view field = bytes.substr(at + TO_TIME, 16);
  int64_t value = 0;  // hhmmss
  size_t i = 0;
  for (; i < field.size() && field[i] >= '0' && field[i] <= '9' && i < 6; ++i)
    value = value * 10 + (field[i] - '0');
  if (i != 6) return std::nullopt;
  int64_t time_us = (value / 10'000 * 3600 + value / 100 % 100 * 60 + value % 100) * SECOND_US;
  if (i < field.size() && field[i] == '.') {
    int64_t unit = SECOND_US / 10;
    for (++i; i < field.size() && field[i] >= '0' && field[i] <= '9'; ++i, unit /= 10)
      time_us += unit * (field[i] - '0');
  }
  return time_us;
}

/// Splits the bytes into lines, each with its line feed.
std::vector<std::string> lines_of(std::string_view bytes) {
  std::vector<std::string> lines;
  while (!bytes.empty()) {
    const size_t feed = bytes.find('\n');
    const size_t length = feed == std::string_view::npos ? bytes.size() : feed + 1;
    lines.emplace_back(bytes.substr(0, length));
    bytes.remove_prefix(length);
  }
  return lines;
}

}  // namespace

Recording::Recording(std::string bytes, const std::string& name) : m_bytes(std::move(bytes)) {
  cut();
  if (m_epochs.empty()) throw FileError(name + ": holds no RMC sentence, so no epoch begins in it");
  place_in_time();
  m_epochs.front().begin = 0;
}

void Recording::cut() {
  for (size_t at = find_rmc(m_bytes, 0); at != std::string::npos; at = find_rmc(m_bytes, at + 1)) {
    if (!m_epochs.empty()) m_epochs.back().end = at;
    m_epochs.push_back({at, m_bytes.size(), 0});
  }
}

void Recording::place_in_time() {
  constexpr int64_t DAY_US = 86'400 * SECOND_US;
  constexpr int64_t LONGEST_GAP_US = 60 * SECOND_US;  // longer gaps are not plausible
  int64_t interval_us = SECOND_US;
  auto before = rmc_time_us(m_bytes, m_epochs.front().begin);
  for (size_t i = 1; i < m_epochs.size(); ++i) {
    const auto time = rmc_time_us(m_bytes, m_epochs[i].begin);
    const int64_t step_us = time && before ? (*time - *before + DAY_US) % DAY_US : 0;
    if (step_us > 0 && step_us <= LONGEST_GAP_US) interval_us = step_us;
    m_epochs[i].offset_us = m_epochs[i - 1].offset_us + interval_us;
    before = time;
  }
  m_duration_us = m_epochs.back().offset_us + interval_us;
}

int64_t ReplaySource::next_offset_us() const {
  const int64_t recorded_us =
      m_rounds * m_options.recording->duration_us() + m_options.recording->epochs()[m_next].offset_us;
  return static_cast<int64_t>(static_cast<double>(recorded_us) / m_options.replay_speed);
}

int64_t ReplaySource::next_start_us() const {
  if (m_next == m_options.recording->epochs().size()) return INT64_MAX;
  return m_options.start_us + next_offset_us();
}

Burst ReplaySource::take() {
  Burst burst{next_start_us(), INT64_MAX, next_offset_us(),
              lines_of(m_options.recording->bytes_of(m_options.recording->epochs()[m_next]))};
  ++m_next;
  if (m_options.replay_loop && m_next == m_options.recording->epochs().size()) {
    m_next = 0;
    ++m_rounds;
  }
  return burst;
}

}  // namespace ecu::koru::sim
