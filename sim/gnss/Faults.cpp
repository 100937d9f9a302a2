#include "sim/gnss/Faults.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <vector>

#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

template <typename Number>
Number parse_number(std::string_view text, std::string_view name) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size())
    throw std::invalid_argument("fault " + std::string(name) + ": not a number: \"" + std::string(text) +
                                "\"");
  return value;
}

double parse_share(std::string_view text, std::string_view name) {
  const auto share = parse_number<double>(text, name);
  if (!(share >= 0.0 && share <= 1.0))
    throw std::invalid_argument("fault " + std::string(name) + ": " + std::string(text) +
                                " is not within 0 to 1");
  return share;
}

void parse_silence(std::string_view text, FaultOptions& options) {
  const size_t at = text.find('@');
  if (at == std::string_view::npos) throw std::invalid_argument("fault silence: expected SECONDS@EVERY");
  options.silence_s = parse_number<double>(text.substr(0, at), "silence");
  options.silence_every_s = parse_number<double>(text.substr(at + 1), "silence");
  if (!(options.silence_s > 0 && options.silence_s < options.silence_every_s &&
        options.silence_every_s <= 86'400))
    throw std::invalid_argument(
        "fault silence: SECONDS must be above 0 and below EVERY, EVERY at most 86400");
}

void parse_one(std::string_view name, std::string_view value, FaultOptions& options) {
  if (name == "drop") {
    options.drop = parse_share(value, name);
  } else if (name == "corrupt") {
    options.corrupt = parse_share(value, name);
  } else if (name == "split") {
    options.split = parse_share(value, name);
  } else if (name == "silence") {
    parse_silence(value, options);
  } else if (name == "seed") {
    options.seed = parse_number<uint64_t>(value, name);
  } else {
    throw std::invalid_argument("unknown fault \"" + std::string(name) +
                                "\"; there are drop, corrupt, split, silence and seed");
  }
}

}  // namespace

FaultOptions parse_faults(std::string_view text) {
  FaultOptions options;
  std::vector<std::string_view> seen;
  while (true) {
    const size_t end = std::min(text.find(','), text.size());
    const std::string_view item = text.substr(0, end);
    const size_t equals = item.find('=');
    const std::string_view name = item.substr(0, equals);
    if (equals == std::string_view::npos)
      throw std::invalid_argument("expected FAULT=VALUE, not \"" + std::string(item) + "\"");
    if (std::find(seen.begin(), seen.end(), name) != seen.end())
      throw std::invalid_argument("fault " + std::string(name) + " is given twice");
    seen.push_back(name);
    parse_one(name, item.substr(equals + 1), options);
    if (end == text.size()) return options;
    text.remove_prefix(end + 1);
  }
}

Faults::Verdict Faults::apply(std::string& sentence) {
  Verdict verdict;
  verdict.dropped = hit(m_options.drop);
  verdict.corrupted = hit(m_options.corrupt);
  const size_t place = below(sentence.size());
  const auto change = static_cast<uint8_t>(1 + below(255));
  const bool split = hit(m_options.split);
  const size_t pause_before = below(sentence.size());
  const auto pause_us = static_cast<int64_t>(20'000 + below(130'001));
  if (verdict.corrupted) sentence[place] = static_cast<char>(static_cast<uint8_t>(sentence[place]) ^ change);
  if (split && pause_before > 0) {
    verdict.pause_before = pause_before;
    verdict.pause_us = pause_us;
  }
  return verdict;
}

bool Faults::silent_at(int64_t since_power_on_us) const {
  if (m_options.silence_s <= 0) return false;
  const auto every_us = static_cast<int64_t>(m_options.silence_every_s * second_us);
  const auto silence_us = static_cast<int64_t>(m_options.silence_s * second_us);
  return since_power_on_us % every_us >= every_us - silence_us;
}

uint64_t Faults::draw() {
  // splitmix64: the same on every machine and compiler
  m_state += 0x9E3779B97F4A7C15U;
  uint64_t x = m_state;
  x = (x ^ (x >> 30U)) * 0xBF58476D1CE4E5B9U;
  x = (x ^ (x >> 27U)) * 0x94D049BB133111EBU;
  return x ^ (x >> 31U);
}

bool Faults::hit(double share) {
  return static_cast<double>(draw() >> 11U) * 0x1p-53 < share;
}

}  // namespace ecu::koru::sim
