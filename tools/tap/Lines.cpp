#include "tools/tap/Lines.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "tools/tap/Fields.h"
#include "tools/tap/GroupView.h"
#include "tools/tap/IsoTime.h"

namespace ecu::koru::tap {

namespace {

using logging::text;

constexpr size_t BYTES_PER_DUMP_LINE = 16;
constexpr size_t MAX_DUMP = 256;
constexpr size_t MAX_VALUE_TEXT = 160;
constexpr std::string_view INDENT = "    ";

/// Escapes all of the text: a viewer does not shorten it.
std::string escaped(std::string_view bytes) {
  return logging::escaped(bytes, std::string_view::npos);
}

Json to_json(const Envelope& envelope) {
  return {{"protocol_type", envelope.protocol_type},
          {"header_length", envelope.header_length},
          {"body_length", envelope.body_length},
          {"timestamp_ns", envelope.timestamp_ns}};
}

std::string ns_as_seconds(uint64_t ns) {
  char out[40];
  (void)std::snprintf(out, sizeof out, "%llu.%06llu", static_cast<unsigned long long>(ns / 1'000'000'000),
                      static_cast<unsigned long long>(ns % 1'000'000'000 / 1000));
  return out;
}

std::string degrees(float value, char positive, char negative) {
  return text(decimal(std::fabs(value), 6), ' ', std::signbit(value) ? negative : positive);
}

std::string utc(uint64_t us) {
  return us < uint64_t{YEAR_10000_US} ? iso_time(static_cast<int64_t>(us), 3) : text("utc ", us, " us");
}

/// Returns "time  position  speed  course  ..." of a fix. Absent fields are left out.
std::string fix_text(const pb::GnssData& fix) {
  std::string out;
  const auto add = [&out](bool present, const auto&... parts) {
    if (present) out.append(out.empty() ? "" : "  ").append(text(parts...));
  };
  add(fix.has_utc_time_us(), utc(fix.utc_time_us()));
  add(fix.has_latitude(), degrees(fix.latitude(), 'N', 'S'));
  add(fix.has_longitude(), degrees(fix.longitude(), 'E', 'W'));
  add(fix.has_speed(), decimal(fix.speed(), 1), " km/h");
  add(fix.has_heading(), decimal(fix.heading(), 1), " deg");
  add(fix.has_altitude(), decimal(fix.altitude(), 1), " m");
  add(fix.has_status(), "status ", fix.status());
  add(fix.has_fix(), "fix ", fix.fix());
  add(fix.has_quality(), "quality ", fix.quality());
  add(fix.has_num_satellites(), fix.num_satellites(), " satellites");
  add(fix.has_accuracy(), "accuracy ", decimal(fix.accuracy(), 1), " m");
  add(fix.has_hdop(), "hdop ", decimal(fix.hdop(), 1));
  add(fix.has_vdop(), "vdop ", decimal(fix.vdop(), 1));
  add(fix.has_timestamp_ns(), "epoch ", ns_as_seconds(fix.timestamp_ns()), " s");
  add(true, fix.nmea_size(), " sentences");
  return out;
}

/// Returns "name=value name=value" for any other body.
std::string fields_text(const Json& fields) {
  std::string out;
  for (const auto& [name, value] : fields.items()) {
    if (!out.empty()) out.push_back(' ');
    std::string shown = value.is_string() ? value.get<std::string>() : value.dump();
    if (value.is_object()) shown = "{" + fields_text(value) + "}";
    if (!value.is_object() && shown.size() > MAX_VALUE_TEXT) {
      shown = text(std::string_view(shown).substr(0, MAX_VALUE_TEXT), "...");
    }
    out.append(name).append("=").append(escaped(shown));
  }
  return out;
}

std::string sentence_lines(const pb::GnssData& fix) {
  std::string out;
  for (std::string_view sentence : fix.nmea()) {
    if (sentence.ends_with("\r\n")) sentence.remove_suffix(2);
    out.append(INDENT).append(escaped(sentence)).append("\n");
  }
  return out;
}

/// Returns "    0000  09 01 00 12 ...   ....", 16 bytes a line, at most 256 bytes.
std::string hex_dump(std::span<const uint8_t> bytes) {
  std::string out;
  const auto shown = bytes.first(std::min(bytes.size(), MAX_DUMP));
  for (size_t start = 0; start < shown.size(); start += BYTES_PER_DUMP_LINE) {
    const auto line = shown.subspan(start, std::min(BYTES_PER_DUMP_LINE, shown.size() - start));
    std::string hex;
    std::string characters;
    for (const uint8_t byte : line) {
      hex.append(hex_text(std::span(&byte, 1))).push_back(' ');
      characters.push_back(byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '.');
    }
    hex.resize(3 * BYTES_PER_DUMP_LINE, ' ');
    out.append(text(INDENT, logging::hex(start, 4), "  ", hex, ' ', characters, '\n'));
  }
  if (shown.size() < bytes.size()) out.append(text(INDENT, bytes.size() - shown.size(), " more bytes\n"));
  return out;
}

/// Returns "10:15:30.123Z system/gnss/data [type 1, 812 bytes, 123.456789 s, retained] ".
std::string line_start(const Arrival& arrival, const Decoded& decoded) {
  std::string out = iso_time(arrival.wall_us, 3).substr(11);
  out.append(" ").append(escaped(arrival.topic)).append(" [");
  if (decoded.envelope) {
    out.append(text("type ", decoded.envelope->protocol_type, ", ", decoded.envelope->body_length, " bytes, ",
                    ns_as_seconds(decoded.envelope->timestamp_ns), " s"));
  } else {
    out.append("no envelope");
  }
  return out.append(arrival.retained ? ", retained] " : "] ");
}

/// Returns where to break a line that is too long: between fields, otherwise between words, otherwise
/// anywhere. Not where little would be left before it.
size_t break_of(std::string_view line, size_t width) {
  for (const std::string_view gap : {"  ", " "}) {
    const size_t at = line.rfind(gap, width);
    if (at != std::string_view::npos && at >= width / 3) return at;
  }
  return width;
}

void append_wrapped(std::string& out, std::string line, size_t width) {
  while (line.size() > width) {
    const size_t at = break_of(line, width);
    out.append(line, 0, at).append("\n");
    line.replace(0, std::min(line.find_first_not_of(' ', at), line.size()), INDENT);
  }
  out.append(line).append("\n");
}

}  // namespace

int64_t wall_us_of(uint64_t boot_ns) {
  const timeval now = time_source().wall();
  const int64_t age_us = (time_source().boot_ns() - static_cast<int64_t>(boot_ns)) / 1000;
  return int64_t{now.tv_sec} * 1'000'000 + now.tv_usec - age_us;
}

std::string wrapped(std::string_view lines, size_t width) {
  constexpr size_t MIN_WIDTH = 20;
  if (width < MIN_WIDTH) return std::string(lines);
  std::string out;
  while (!lines.empty()) {
    const size_t end = lines.find('\n');
    append_wrapped(out, std::string(lines.substr(0, end)), width);
    lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
  }
  return out;
}

std::string json_line(const Arrival& arrival) {
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  Json line = {{"time", iso_time(arrival.wall_us, 6)},
               {"arrival_ns", arrival.boot_ns},
               {"topic", safe_text(arrival.topic)},
               {"retained", arrival.retained}};
  if (decoded.envelope) line["envelope"] = to_json(*decoded.envelope);
  if (decoded.problem.empty()) {
    line["type"] = decoded.row->type;
    line["body"] = fields(decoded.body, decoded.row->view);
    if (decoded.group.is_valid()) line["group"] = group_json(decoded.group);
  } else {
    line["error"] = decoded.problem;
    line["payload"] = hex_text(arrival.payload);
  }
  return line.dump(-1, ' ', true);
}

std::string human_line(const Arrival& arrival, bool sentences) {
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  std::string out = line_start(arrival, decoded);
  if (!decoded.problem.empty()) {
    return out + "UNDECODABLE: " + decoded.problem + "\n" + hex_dump(arrival.payload);
  }
  if (const auto* fix = std::get_if<pb::GnssData>(&decoded.body)) {
    return out + fix_text(*fix) + "\n" + (sentences ? sentence_lines(*fix) : "");
  }
  if (decoded.group.is_valid()) return out + group_text(decoded.group) + "\n";
  const std::string body = fields_text(fields(decoded.body, decoded.row->view));
  return out + (body.empty() ? "(no fields)" : body) + "\n";
}

}  // namespace ecu::koru::tap
