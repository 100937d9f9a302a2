#include "tools/tap/Recording.h"

#include <limits>
#include <optional>

#include "platform/base/Logging.h"
#include "platform/com/Transport.h"
#include "tools/tap/Fields.h"
#include "tools/tap/IsoTime.h"

namespace ecu::koru::tap {

namespace {

using logging::text;

constexpr std::string_view FORMAT = "satnav-tap recording";
constexpr uint64_t MAX_BOOT_NS = std::numeric_limits<int64_t>::max();

std::string to_line(const Json& json) {
  // The broker has checked that the topic is UTF-8; never fail if it has not.
  return json.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

/// Returns a member that is a whole number from 0 to `limit`.
std::optional<uint64_t> number(const Json& json, const char* name, uint64_t limit) {
  const auto member = json.find(name);
  if (member == json.end() || !member->is_number_unsigned()) return std::nullopt;
  const auto value = member->get<uint64_t>();
  return value <= limit ? std::optional(value) : std::nullopt;
}

/// Reads both times into a Moment or a RecordedMessage. Returns what is wrong; empty if nothing is.
template <typename T>
std::string read_times(const Json& json, T& out) {
  const auto wall_us = number(json, "wall_us", uint64_t{YEAR_10000_US} - 1);
  if (!wall_us) return "wall_us is not a time in microseconds since 1970";
  const auto boot_ns = number(json, "boot_ns", MAX_BOOT_NS);
  if (!boot_ns) return "boot_ns is not a time in nanoseconds since boot";
  out.wall_us = static_cast<int64_t>(*wall_us);
  out.boot_ns = *boot_ns;
  return {};
}

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::optional<std::vector<uint8_t>> from_hex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::vector<uint8_t> out;
  out.reserve(hex.size() / 2);
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = digit(hex[i]);
    const int low = digit(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    out.push_back(static_cast<uint8_t>(high << 4 | low));
  }
  return out;
}

const std::string* string_member(const Json& json, const char* name) {
  const auto member = json.find(name);
  return member != json.end() ? member->get_ptr<const std::string*>() : nullptr;
}

/// Reads all but the times. Returns what is wrong; empty if nothing is.
std::string read_content(const Json& json, RecordedMessage& out) {
  const auto* const topic = string_member(json, "topic");
  if (topic == nullptr || !com::is_publish_topic(*topic)) return "topic is not the topic of a message";
  const auto retained = json.find("retained");
  if (retained == json.end() || !retained->is_boolean()) return "retained is neither true nor false";
  const auto* const hex = string_member(json, "payload");
  auto payload = hex != nullptr ? from_hex(*hex) : std::nullopt;
  if (!payload) return "payload is not a text of two hexadecimal digits a byte";
  out.topic = *topic;
  out.retained = retained->get<bool>();
  out.payload = std::move(*payload);
  return {};
}

}  // namespace

Arrival RecordedMessage::arrival() const {
  return {.topic = topic, .payload = payload, .wall_us = wall_us, .boot_ns = boot_ns, .retained = retained};
}

std::string header_line(const Moment& beginning) {
  return to_line({{"format", FORMAT},
                  {"version", RECORDING_VERSION},
                  {"wall_us", beginning.wall_us},
                  {"boot_ns", beginning.boot_ns}});
}

std::string message_line(const Arrival& arrival) {
  return to_line({{"wall_us", arrival.wall_us},
                  {"boot_ns", arrival.boot_ns},
                  {"retained", arrival.retained},
                  {"topic", arrival.topic},
                  {"payload", hex_text(arrival.payload)}});
}

std::variant<Moment, std::string> read_header_line(std::string_view line) {
  const Json json = Json::parse(line, nullptr, false);
  const auto* const format = json.is_object() ? string_member(json, "format") : nullptr;
  if (format == nullptr || *format != FORMAT) return "this is not the header of a recording";
  const auto version = number(json, "version", std::numeric_limits<uint32_t>::max());
  if (!version || *version == 0) return "the version of the format is not a number";
  if (*version > RECORDING_VERSION) {
    return text("version ", *version, " of the format is too new; this program reads version ",
                RECORDING_VERSION);
  }
  Moment beginning;
  if (auto problem = read_times(json, beginning); !problem.empty()) return problem;
  return beginning;
}

std::variant<RecordedMessage, std::string> read_message_line(std::string_view line) {
  const Json json = Json::parse(line, nullptr, false);
  if (!json.is_object()) return "this is not a JSON object";
  if (json.contains("format")) return "another recording begins here; a file holds only one";
  RecordedMessage message;
  if (auto problem = read_times(json, message); !problem.empty()) return problem;
  if (auto problem = read_content(json, message); !problem.empty()) return problem;
  return message;
}

}  // namespace ecu::koru::tap
