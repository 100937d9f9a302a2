#include "sim/gnss/Faults.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <vector>

#include "sim/gnss/Line.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

// The errors of these functions are texts to which parse_item() adds the fault's name.

template <typename Number>
Number parse_number(std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size())
    throw std::invalid_argument("not a number: \"" + std::string(text) + "\"");
  return value;
}

template <double FaultOptions::*fault>
void read_share(std::string_view text, FaultOptions& options) {
  options.*fault = parse_share(text);
}

void parse_silence(std::string_view text, FaultOptions& options) {
  const size_t at = text.find('@');
  if (at == std::string_view::npos) throw std::invalid_argument("expected SECONDS@EVERY");
  options.silence_s = parse_number<double>(text.substr(0, at));
  options.silence_every_s = parse_number<double>(text.substr(at + 1));
  if (!(options.silence_s > 0 && options.silence_s < options.silence_every_s &&
        options.silence_every_s <= 86'400))
    throw std::invalid_argument("SECONDS must be above 0 and below EVERY, EVERY at most 86400");
}

double parse_time(std::string_view text) {
  const auto seconds = parse_number<double>(text);
  if (!(seconds >= 0 && seconds <= 1e6)) throw std::invalid_argument("the time is not within 0 to 1000000 s");
  return seconds;
}

void parse_nak(std::string_view text, FaultOptions& options) {
  if (text == "all") {
    options.nak_all = true;
    return;
  }
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc{} || end != text.data() + text.size() || text.size() != 4)
    throw std::invalid_argument("expected class and id such as 0624, or all");
  options.nak.push_back({static_cast<uint8_t>(value >> 8U), static_cast<uint8_t>(value & 0xFFU)});
}

void parse_antenna(std::string_view text, FaultOptions& options) {
  const size_t at = std::min(text.find('@'), text.size());
  const auto state = antenna_state_of(text.substr(0, at));
  if (!state) throw std::invalid_argument("expected ok, open or short, and @SECONDS");
  options.antenna.push_back({*state, at == text.size() ? 0 : parse_time(text.substr(at + 1))});
}

void parse_late(std::string_view text, FaultOptions& options) {
  const auto late_ms = parse_number<int64_t>(text);
  if (late_ms < 0 || late_ms > 60'000) throw std::invalid_argument("not within 0 to 60000 ms");
  options.late_us = late_ms * 1000;
}

void parse_reset_to(std::string_view text, FaultOptions& options) {
  options.reset_to = parse_number<unsigned>(text);
  if (!is_receiver_baud(*options.reset_to))
    throw std::invalid_argument("a receiver does not know this baud rate");
}

/// A fault's name, followed by nothing, =VALUE or @TIME.
struct FaultRow {
  std::string_view name;
  char separator;  // 0: nothing follows
  bool repeated;   // may be given more than once
  void (*parse)(std::string_view value, FaultOptions& options);
};
constexpr FaultRow FAULT_ROWS[] = {
    {"drop", '=', false, read_share<&FaultOptions::drop>},
    {"corrupt", '=', false, read_share<&FaultOptions::corrupt>},
    {"split", '=', false, read_share<&FaultOptions::split>},
    {"silence", '=', false, parse_silence},
    {"seed", '=', false, [](auto text, auto& o) { o.seed = parse_number<uint64_t>(text); }},
    {"mute", 0, false, [](auto, auto& o) { o.mute = true; }},
    {"nak", '=', true, parse_nak},
    {"late", '=', false, parse_late},
    {"lose", '=', false, read_share<&FaultOptions::lose>},
    {"newer", 0, false, [](auto, auto& o) { o.newer = true; }},
    {"garbage-ubx", '=', false, read_share<&FaultOptions::garbage_ubx>},
    {"power-cycle", '@', true, [](auto text, auto& o) { o.power_cycles_s.push_back(parse_time(text)); }},
    {"reset-to", '=', false, parse_reset_to},
    {"antenna", '=', true, parse_antenna},
};

const FaultRow& row_of(std::string_view name) {
  for (const FaultRow& row : FAULT_ROWS)
    if (row.name == name) return row;
  std::string known;
  for (const FaultRow& row : FAULT_ROWS) known.append(known.empty() ? "" : ", ").append(row.name);
  throw std::invalid_argument("unknown fault \"" + std::string(name) + "\"; there are " + known);
}

void parse_item(std::string_view item, std::vector<std::string_view>& seen, FaultOptions& options) {
  const size_t name_end = std::min(item.find_first_of("=@"), item.size());
  const FaultRow& row = row_of(item.substr(0, name_end));
  const char separator = name_end == item.size() ? '\0' : item[name_end];
  const std::string fault = "fault " + std::string(row.name);
  if (separator != row.separator)
    throw std::invalid_argument(fault + ": expected " + std::string(row.name) +
                                (row.separator == 0 ? " alone" : row.separator + std::string("VALUE")));
  if (!row.repeated && std::find(seen.begin(), seen.end(), row.name) != seen.end())
    throw std::invalid_argument(fault + " is given twice");
  seen.push_back(row.name);
  try {
    row.parse(item.substr(std::min(name_end + 1, item.size())), options);
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument(fault + ": " + error.what());
  }
}

}  // namespace

double parse_share(std::string_view text) {
  const auto share = parse_number<double>(text);
  if (share >= 0.0 && share <= 1.0) return share;
  throw std::invalid_argument(std::string(text) + " is not within 0 to 1");
}

FaultOptions parse_faults(std::string_view text) {
  FaultOptions options;
  std::vector<std::string_view> seen;
  while (true) {
    const size_t end = std::min(text.find(','), text.size());
    parse_item(text.substr(0, end), seen, options);
    if (end == text.size()) return options;
    text.remove_prefix(end + 1);
  }
}

Faults::Verdict Faults::apply(std::string& sentence) {
  Verdict verdict;
  verdict.dropped = m_random.hit(m_options.drop);
  verdict.corrupted = m_random.hit(m_options.corrupt);
  const size_t place = m_random.below(sentence.size());
  const auto change = static_cast<uint8_t>(1 + m_random.below(255));
  const bool split = m_random.hit(m_options.split);
  const size_t pause_before = m_random.below(sentence.size());
  const auto pause_us = static_cast<int64_t>(20'000 + m_random.below(130'001));
  if (verdict.corrupted) sentence[place] = static_cast<char>(static_cast<uint8_t>(sentence[place]) ^ change);
  if (split && pause_before > 0) {
    verdict.pause_before = pause_before;
    verdict.pause_us = pause_us;
  }
  return verdict;
}

bool Faults::silent_at(int64_t since_power_on_us) const {
  if (m_options.silence_s <= 0) return false;
  const auto every_us = static_cast<int64_t>(m_options.silence_every_s * SECOND_US);
  const auto silence_us = static_cast<int64_t>(m_options.silence_s * SECOND_US);
  return since_power_on_us % every_us >= every_us - silence_us;
}

std::optional<UbxFrame> Faults::garbage() {
  // Half of the frames have the id of a message that the host waits for.
  constexpr std::array<UbxId, 10> PLAUSIBLE{{{0x01, 0x21},
                                             {0x05, 0x00},
                                             {0x05, 0x01},
                                             {0x06, 0x00},
                                             {0x06, 0x13},
                                             {0x06, 0x24},
                                             {0x06, 0x3E},
                                             {0x0A, 0x04},
                                             {0x0A, 0x09},
                                             {0x0A, 0x28}}};
  if (!m_ubx_random.hit(m_options.garbage_ubx)) return std::nullopt;
  UbxFrame frame;
  frame.id = m_ubx_random.hit(0.5) ? PLAUSIBLE.at(m_ubx_random.below(PLAUSIBLE.size()))
                                   : UbxId{static_cast<uint8_t>(m_ubx_random.below(256)),
                                           static_cast<uint8_t>(m_ubx_random.below(256))};
  frame.payload.resize(m_ubx_random.below(m_ubx_random.hit(0.05) ? 1000 : 80));
  for (uint8_t& byte : frame.payload) byte = static_cast<uint8_t>(m_ubx_random.below(256));
  return frame;
}

uint64_t Random::draw() {
  // splitmix64: the same on every machine and compiler
  m_state += 0x9E3779B97F4A7C15U;
  uint64_t x = m_state;
  x = (x ^ (x >> 30U)) * 0xBF58476D1CE4E5B9U;
  x = (x ^ (x >> 27U)) * 0x94D049BB133111EBU;
  return x ^ (x >> 31U);
}

}  // namespace ecu::koru::sim
