#include "sim/ecu/Command.h"

#include <algorithm>
#include <array>
#include <optional>

#include "platform/base/Logging.h"
#include "platform/base/Numbers.h"

namespace ecu::koru::sim {

namespace {

using logging::escaped;

constexpr std::string_view BLANKS = " \t\r";
constexpr size_t MAX_RAW_SIGNAL = 64;  // bytes; for a signal that is not in the signal database

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(BLANKS);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

/// Removes the text up to the first of `separators`, that separator and any blanks after it. Returns
/// the text, trimmed.
std::string_view take_word(std::string_view& rest, std::string_view separators) {
  const std::string_view word = rest.substr(0, rest.find_first_of(separators));
  rest.remove_prefix(word.size());
  if (!rest.empty()) rest.remove_prefix(1);
  rest = trimmed(rest);
  return trimmed(word);
}

[[noreturn]] void refuse(const std::string& expected, std::string_view found) {
  throw BadCommand("expected " + expected + ", found '" + escaped(found) + "'");
}

void refuse_more(std::string_view rest) {
  if (!rest.empty()) refuse("nothing more", rest);
}

std::string hex_bytes(std::string_view text) {
  std::string digits;
  std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
               [](char c) { return BLANKS.find(c) == std::string_view::npos; });
  std::string bytes;
  for (size_t i = 0; i < digits.size(); i += 2) {
    const std::string_view pair = std::string_view(digits).substr(i, 2);
    const auto value = to_number<uint8_t>(pair, 16);
    if (!value || pair.size() != 2) refuse("bytes in hex, two digits each", text);
    bytes.push_back(static_cast<char>(*value));
  }
  return bytes;
}

uint32_t parameter_id(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const auto id = to_number<uint32_t>(hex ? text.substr(2) : text, hex ? 16 : 10);
  if (!id) refuse("a parameter id like 0xA00F", text);
  return *id;
}

/// Reads an offset like "+01:00" into hours and minutes, which both get the sign.
void set_offset(pb::TimeZone& zone, std::string_view text) {
  const bool shape = text.size() == 6 && (text[0] == '+' || text[0] == '-') && text[3] == ':' &&
                     text[1] != '-' && text[4] != '-';
  const auto hours = shape ? to_int_within(text.substr(1, 2), 0, 23) : std::nullopt;
  const auto minutes = shape ? to_int_within(text.substr(4, 2), 0, 59) : std::nullopt;
  if (!hours || !minutes) refuse("an offset like +01:00 or -03:30, or none", text);
  const int sign = text[0] == '-' ? -1 : 1;
  zone.set_hour_offset(sign * static_cast<int>(*hours));
  zone.set_minute_offset(sign * static_cast<int>(*minutes));
}

void set_zone_attribute(pb::TimeZone& zone, std::string_view word) {
  if (word == "summer") {
    zone.set_summer_time(true);
  } else if (word == "source=user") {
    zone.set_source(pb::TimeZone::USER);
  } else if (word == "source=system") {
    zone.set_source(pb::TimeZone::SYSTEM);
  } else {
    refuse("summer, source=user or source=system", word);
  }
}

Command read_variable(std::string_view rest) {
  const std::string_view name = take_word(rest, " \t=");
  if (name.empty() || name.find_first_of("/+#") != std::string_view::npos) refuse("a variable's name", name);
  return SetVariable{.name = std::string(name), .text = std::string(rest)};
}

Command read_parameter(std::string_view rest) {
  const uint32_t id = parameter_id(take_word(rest, " \t="));
  const std::string_view value = take_word(rest, " \t:");
  if (value.empty()) refuse("bytes in hex after the parameter id", value);
  if (!rest.empty() && rest != "nootaid") refuse("nootaid or nothing", rest);
  return SetParameter{.id = id, .value = hex_bytes(value), .has_otaid = rest.empty()};
}

Command read_time_zone(std::string_view rest) {
  pb::TimeZone zone;
  zone.set_hour_offset(0);
  zone.set_minute_offset(0);
  zone.set_summer_time(false);
  zone.set_source(pb::TimeZone::NONE);
  const std::string_view offset = take_word(rest, " \t,");
  if (offset == "none") {
    refuse_more(rest);
    return SetTimeZone{zone};
  }
  set_offset(zone, offset);
  zone.set_source(pb::TimeZone::SYSTEM);
  while (!rest.empty()) set_zone_attribute(zone, take_word(rest, " \t,"));
  return SetTimeZone{zone};
}

Command read_blackout(std::string_view rest) {
  if (rest != "on" && rest != "off") refuse("on or off", rest);
  return SetBlackout{rest == "on"};
}

Command read_hardware_version(std::string_view rest) {
  if (rest.empty() || rest.size() > MAX_RAW_SIGNAL) refuse("a text of 1 to 64 bytes", rest);
  return SetHardwareVersion{std::string(rest)};
}

Command read_source(std::string_view rest) {
  if (rest == "local") return AnnounceSource{pb::GnssSource::LOCAL_RECEIVER};
  if (rest == "can") return AnnounceSource{pb::GnssSource::CAN};
  if (rest == "unknown") return AnnounceSource{pb::GnssSource::UNKNOWN};
  refuse("local, can or unknown", rest);
}

template <bool retained>
Command read_raw(std::string_view rest) {
  const std::string_view topic = take_word(rest, " \t");
  if (topic.empty() || topic.find_first_of("+#") != std::string_view::npos)
    refuse("a topic without wildcards", topic);
  return SendRaw{.topic = std::string(topic), .payload = hex_bytes(rest), .retained = retained};
}

template <typename SessionCommand>
Command read_alone(std::string_view rest) {
  refuse_more(rest);
  return SessionCommand{};
}

struct CommandRow {
  std::string_view name;
  std::string_view arguments;
  std::string_view meaning;
  Command (*read)(std::string_view arguments);
};

constexpr CommandRow COMMANDS[] = {
    {"var", "NAME TEXT", "ECU variable, retained", read_variable},
    {"param", "ID HEX [nootaid]", "system parameter: the retained map and the change", read_parameter},
    {"timezone", "+HH:MM [summer] [source=user] | none", "time zone", read_time_zone},
    {"blackout", "on | off", "radio silence", read_blackout},
    {"hw-version", "TEXT", "hardware version signal, its bytes", read_hardware_version},
    {"source", "local | can | unknown", "GNSS source announcement of another unit", read_source},
    {"log-config", "HEX", "diagnostics flags, lowest byte first",
     [](auto rest) -> Command { return SetLogFlags{hex_bytes(rest)}; }},
    {"raw", "TOPIC [HEX]", "any payload, without an envelope", read_raw<false>},
    {"raw-retained", "TOPIC [HEX]", "the same retained; without bytes the topic is cleared", read_raw<true>},
    {"help", "", "this list", read_alone<ShowHelp>},
    {"quit", "", "end", read_alone<Quit>},
};

}  // namespace

bool is_said_once(const Command& command) {
  return std::holds_alternative<AnnounceSource>(command) || std::holds_alternative<SetLogFlags>(command) ||
         std::holds_alternative<SendRaw>(command);
}

bool concerns_session(const Command& command) {
  return std::holds_alternative<ShowHelp>(command) || std::holds_alternative<Quit>(command);
}

bool is_blank(std::string_view line) {
  line = trimmed(line);
  return line.empty() || line.front() == '#';
}

Command parse_command(std::string_view line) {
  std::string_view rest = trimmed(line);
  const std::string_view name = take_word(rest, BLANKS);
  for (const auto& row : COMMANDS) {
    if (row.name != name) continue;
    try {
      return row.read(rest);
    } catch (const BadCommand& error) {
      throw BadCommand(std::string(name) + ": " + error.what());
    }
  }
  throw BadCommand("unknown command '" + escaped(name) + "'");
}

std::string command_help() {
  constexpr size_t USAGE_WIDTH = 48;
  std::string out;
  for (const auto& row : COMMANDS) {
    std::string usage = logging::text(row.name, ' ', row.arguments);
    usage.resize(std::max(USAGE_WIDTH, usage.size() + 1), ' ');
    out.append("  ").append(usage).append(row.meaning).append("\n");
  }
  return out;
}

}  // namespace ecu::koru::sim
