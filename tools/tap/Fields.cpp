#include "tools/tap/Fields.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <type_traits>

namespace ecu::koru::tap {

namespace {

/// A field of the message type T: its name and how to read its value. `read` returns empty if the
/// field is absent.
template <typename T>
struct FieldRow {
  const char* name;
  std::optional<Json> (*read)(const T& message);
};

/// Returns the double with the fewest digits that is still this float; null if the float is not finite.
Json to_json(float value) {
  if (!std::isfinite(value)) return nullptr;
  char digits[64];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  double shortest = 0;
  std::from_chars(digits, end, shortest);
  return shortest;
}

Json to_json(pb::GnssSource::Source value) {
  return pb::GnssSource::Source_Name(value);
}
Json to_json(pb::GnssHealth::State value) {
  return pb::GnssHealth::State_Name(value);
}
Json to_json(pb::TimeZone::Source value) {
  return pb::TimeZone::Source_Name(value);
}
Json to_json(const std::string& bytes) {
  return hex_text(bytes);
}

template <typename T>
requires std::is_integral_v<T> Json to_json(T value) {
  return value;
}

template <auto Has, auto Get, typename T>
std::optional<Json> field(const T& message) {
  if (!(message.*Has)()) return std::nullopt;
  return to_json((message.*Get)());
}

template <auto Has, auto Get, typename T>
std::optional<Json> text_field(const T& message) {
  if (!(message.*Has)()) return std::nullopt;
  return safe_text((message.*Get)());
}

std::optional<Json> text_value(const pb::RtSignal& message) {
  if (!message.has_value()) return std::nullopt;
  return safe_text(message.value());
}

std::optional<Json> sentences(const pb::GnssData& message) {
  if (message.nmea_size() == 0) return std::nullopt;
  Json list = Json::array();
  for (const auto& sentence : message.nmea()) list.push_back(safe_text(sentence));
  return list;
}

/// Returns the id as in the parameters' topics: "0x0000A00F".
std::string parameter_id(uint32_t id) {
  char text[16];
  (void)std::snprintf(text, sizeof text, "0x%08X", id);
  return text;
}

std::optional<Json> entries(const pb::SystemParameters& message);

using Fix = pb::GnssData;
using Health = pb::GnssHealth;
using Zone = pb::TimeZone;
using Entry = pb::SystemParameterEntry;

constexpr FieldRow<pb::RtSignal> RT_SIGNAL[] = {
    {"value", field<&pb::RtSignal::has_value, &pb::RtSignal::value>}};
constexpr FieldRow<pb::RtSignal> RT_SIGNAL_TEXT[] = {{"value", text_value}};

constexpr FieldRow<pb::GnssSource> GNSS_SOURCE[] = {
    {"source", field<&pb::GnssSource::has_source, &pb::GnssSource::source>}};

constexpr FieldRow<Zone> TIME_ZONE[] = {
    {"hour_offset", field<&Zone::has_hour_offset, &Zone::hour_offset>},
    {"minute_offset", field<&Zone::has_minute_offset, &Zone::minute_offset>},
    {"summer_time", field<&Zone::has_summer_time, &Zone::summer_time>},
    {"source", field<&Zone::has_source, &Zone::source>},
};

constexpr FieldRow<Entry> PARAMETER[] = {
    {"flags", field<&Entry::has_flags, &Entry::flags>},
    {"value", field<&Entry::has_value, &Entry::value>},
};
constexpr FieldRow<pb::SystemParameters> PARAMETERS[] = {{"entries", entries}};

constexpr FieldRow<Fix> GNSS_DATA[] = {
    {"longitude", field<&Fix::has_longitude, &Fix::longitude>},
    {"latitude", field<&Fix::has_latitude, &Fix::latitude>},
    {"speed", field<&Fix::has_speed, &Fix::speed>},
    {"heading", field<&Fix::has_heading, &Fix::heading>},
    {"num_satellites", field<&Fix::has_num_satellites, &Fix::num_satellites>},
    {"quality", field<&Fix::has_quality, &Fix::quality>},
    {"nmea", sentences},
    {"status", field<&Fix::has_status, &Fix::status>},
    {"fix", field<&Fix::has_fix, &Fix::fix>},
    {"altitude", field<&Fix::has_altitude, &Fix::altitude>},
    {"utc_time_us", field<&Fix::has_utc_time_us, &Fix::utc_time_us>},
    {"timestamp_ns", field<&Fix::has_timestamp_ns, &Fix::timestamp_ns>},
    {"accuracy", field<&Fix::has_accuracy, &Fix::accuracy>},
    {"hdop", field<&Fix::has_hdop, &Fix::hdop>},
    {"vdop", field<&Fix::has_vdop, &Fix::vdop>},
};

constexpr FieldRow<Health> GNSS_HEALTH[] = {
    {"state", field<&Health::has_state, &Health::state>},
    {"reason", text_field<&Health::has_reason, &Health::reason>},
    {"valid_fix_age_ms", field<&Health::has_valid_fix_age_ms, &Health::valid_fix_age_ms>},
    {"fixes", field<&Health::has_fixes, &Health::fixes>},
    {"incomplete_epochs", field<&Health::has_incomplete_epochs, &Health::incomplete_epochs>},
    {"bytes_received", field<&Health::has_bytes_received, &Health::bytes_received>},
    {"bytes_dropped", field<&Health::has_bytes_dropped, &Health::bytes_dropped>},
    {"bad_sentences", field<&Health::has_bad_sentences, &Health::bad_sentences>},
    {"bad_frames", field<&Health::has_bad_frames, &Health::bad_frames>},
    {"reopenings", field<&Health::has_reopenings, &Health::reopenings>},
    {"naks", field<&Health::has_naks, &Health::naks>},
    {"last_refused", text_field<&Health::has_last_refused, &Health::last_refused>},
    {"baud_rate", field<&Health::has_baud_rate, &Health::baud_rate>},
    {"wanted_systems", field<&Health::has_wanted_systems, &Health::wanted_systems>},
    {"enabled_systems", field<&Health::has_enabled_systems, &Health::enabled_systems>},
    {"antenna_status", field<&Health::has_antenna_status, &Health::antenna_status>},
    {"receiver_software", text_field<&Health::has_receiver_software, &Health::receiver_software>},
    {"sequence_step", text_field<&Health::has_sequence_step, &Health::sequence_step>},
    {"messages_sent", field<&Health::has_messages_sent, &Health::messages_sent>},
    {"messages_dropped", field<&Health::has_messages_dropped, &Health::messages_dropped>},
    {"reconnects", field<&Health::has_reconnects, &Health::reconnects>},
    {"version", text_field<&Health::has_version, &Health::version>},
    {"uptime_ms", field<&Health::has_uptime_ms, &Health::uptime_ms>},
};

template <typename T>
Json read_rows(std::span<const FieldRow<std::type_identity_t<T>>> rows, const T& message) {
  Json out = Json::object();
  for (const auto& row : rows) {
    if (auto value = row.read(message)) out[row.name] = std::move(*value);
  }
  if (!message.unknown_fields().empty()) out["unknown_fields"] = hex_text(message.unknown_fields());
  return out;
}

std::optional<Json> entries(const pb::SystemParameters& message) {
  std::map<uint32_t, const Entry*> by_id;  // the message's own order is arbitrary
  for (const auto& [id, entry] : message.entries()) by_id[id] = &entry;
  Json out = Json::object();
  for (const auto& [id, entry] : by_id) out[parameter_id(id)] = read_rows(PARAMETER, *entry);
  return out;
}

bool is_utf8(std::string_view text) {
  try {
    (void)Json(text).dump();  // throws if the text is not UTF-8
    return true;
  } catch (const Json::type_error&) {
    return false;
  }
}

struct ReadFields {
  ValueView view;
  Json operator()(std::monostate) const { return Json::object(); }
  Json operator()(const pb::RtSignal& body) const {
    return view == ValueView::text ? read_rows(RT_SIGNAL_TEXT, body) : read_rows(RT_SIGNAL, body);
  }
  Json operator()(const pb::GnssData& body) const { return read_rows(GNSS_DATA, body); }
  Json operator()(const pb::GnssHealth& body) const { return read_rows(GNSS_HEALTH, body); }
  Json operator()(const pb::GnssSource& body) const { return read_rows(GNSS_SOURCE, body); }
  Json operator()(const pb::TimeZone& body) const { return read_rows(TIME_ZONE, body); }
  Json operator()(const pb::SystemParameters& body) const { return read_rows(PARAMETERS, body); }
};

}  // namespace

Json fields(const Body& body, ValueView view) {
  return std::visit(ReadFields{view}, body);
}

std::string decimal(double value, int decimals) {
  char digits[400];
  const auto end =
      std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, decimals).ptr;
  return {digits, end};
}

std::string hex_text(std::string_view bytes) {
  static constexpr char DIGITS[] = "0123456789abcdef";
  std::string out;
  out.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out.append({DIGITS[byte >> 4], DIGITS[byte & 0xF]});
  }
  return out;
}

std::string hex_text(std::span<const uint8_t> bytes) {
  return hex_text(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string safe_text(std::string_view text) {
  if (is_utf8(text)) return std::string(text);
  std::string out;
  out.reserve(4 * text.size());
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x80) {
      out.push_back(c);
    } else {
      out.append("\\x").append(hex_text(std::string_view(&c, 1)));
    }
  }
  return out;
}

}  // namespace ecu::koru::tap
