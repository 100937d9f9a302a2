#include "fuzz/FuzzTarget.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "platform/base/Logging.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "proto/nvxproto.pb.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace fuzz {

using namespace ecu::koru;

namespace {

constexpr std::array<Target, 11> TARGETS{{{"framing", framing},
                                          {"spi", spi},
                                          {"sentences", sentences},
                                          {"epochs", epochs},
                                          {"ubx", ubx},
                                          {"envelope", envelope},
                                          {"observers", observers},
                                          {"can_input", can_input},
                                          {"configuration", configuration},
                                          {"signals", signals},
                                          {"service", service}}};

constexpr size_t MAX_RECORD = 100'000;  // bytes, enough for a dump of the whole receive buffer
constexpr int64_t BOOT_NS = 1'000'000'000'000;
constexpr int64_t WALL_US = 1'400'000'000'000'000;  // 2014

bool is_text(std::string_view line) {
  return std::all_of(line.begin(), line.end(), [](char c) { return (c >= 0x20 && c <= 0x7E) || c == '\t'; });
}

bool is_dump(std::string_view line) {
  return line.find_first_not_of("0123456789ABCDEF ") == std::string_view::npos;
}

/// Nobody may forge a record: only a hex dump may follow a line feed.
void check_record(std::string_view record) {
  const size_t end = std::min(record.find('\n'), record.size());
  const bool harmless = is_text(record.substr(0, end)) && (end == record.size() || is_dump([&] {
                                                             std::string rest(record.substr(end));
                                                             std::erase(rest, '\n');
                                                             return rest;
                                                           }()));
  if (!harmless) std::cerr << record << std::endl;
  require(harmless, "a log record holds printable text and dumps");
  require(record.size() <= MAX_RECORD, "a log record has an end");
}

VirtualTime*& clock_cell() {
  static VirtualTime* clock = nullptr;
  return clock;
}

}  // namespace

std::span<const Target> targets() {
  return TARGETS;
}

const Target* find_target(std::string_view name) {
  const auto* const found =
      std::find_if(TARGETS.begin(), TARGETS.end(), [=](const Target& each) { return each.name == name; });
  return found != TARGETS.end() ? found : nullptr;
}

void run(const Target& target, Bytes input) {
  VirtualTime clock(BOOT_NS, WALL_US);
  clock_cell() = &clock;
  set_time_source(&clock);
  gpspub::GnssUtils::initDuration();
  logging::set_sink([](logging::Level, std::string_view, std::string_view text) { check_record(text); });
  const bool log_all = !input.empty() && input[0] % 2 == 1;
  logging::configure_logging(log_all ? "DEBUG" : "INFO");
  gpspub::GnssUtils::setLogFlags(log_all ? ~0U : 0U);
  target.run(input.empty() ? input : input.subspan(1));
  set_time_source(nullptr);
  clock_cell() = nullptr;
}

VirtualTime& virtual_time() {
  return *clock_cell();
}

void require(bool holds, const char* promise) {
  if (holds) return;
  std::cerr << "\nbroken promise: " << promise << std::endl;
  std::abort();
}

uint8_t Input::byte() {
  const Bytes one = take(1);
  return one.empty() ? uint8_t{0} : one[0];
}

Bytes Input::take(size_t count) {
  const Bytes taken = m_bytes.first(std::min(count, m_bytes.size()));
  m_bytes = m_bytes.subspan(taken.size());
  return taken;
}

std::string Input::line() {
  const auto end = std::find(m_bytes.begin(), m_bytes.end(), uint8_t{'\n'});
  std::string line = text(take(static_cast<size_t>(end - m_bytes.begin())));
  static_cast<void>(byte());
  return line;
}

std::string text(Bytes bytes) {
  return {bytes.begin(), bytes.end()};
}

com::Message enveloped(Bytes body) {
  pb::NVXHeader header;
  header.set_header(1 | uint64_t{com::envelope::HEADER_LENGTH} << 16 | uint64_t{body.size()} << 32);
  header.set_timestamp_ns(1);
  std::string payload = header.SerializeAsString();
  payload.append(body.begin(), body.end());
  com::Message message;
  message.payload.assign(payload.begin(), payload.end());
  message.timestamp_ns = static_cast<uint64_t>(virtual_time().boot_ns());
  message.valid = true;
  return message;
}

com::Message enveloped_signal(Bytes value) {
  pb::RtSignal signal;
  signal.set_value(text(value));
  const std::string body = signal.SerializeAsString();
  return enveloped({reinterpret_cast<const uint8_t*>(body.data()), body.size()});
}

}  // namespace fuzz
