#include <algorithm>
#include <cmath>

#include "platform/base/Logging.h"
#include "platform/com/Topics.h"
#include "tools/tap/Fields.h"
#include "tools/tap/IsoTime.h"
#include "tools/tap/Lines.h"
#include "tools/tap/live/Layout.h"
#include "tools/tap/live/SkyRows.h"

namespace ecu::koru::tap::live {

namespace {

using logging::text;

constexpr size_t FIELDS_WIDTH = 42;
constexpr int LABEL_WIDTH = 14;
constexpr const char* ABSENT = "-";

const pb::GnssData& fix_of(const Model& model) {
  return model.fix() ? model.fix()->body : pb::GnssData::default_instance();
}

/// The value of a field: its text, and how it looks.
struct Value {
  std::string text = ABSENT;
  Style style = Style::plain;
};

Value number(bool present, double value, int decimals, std::string_view unit) {
  if (!present || !std::isfinite(value)) return {};
  return {text(decimal(value, decimals), unit)};
}

Value angle(bool present, double value, char positive, char negative) {
  if (!present || !std::isfinite(value)) return {};
  return {text(decimal(std::fabs(value), 6), " ", std::signbit(value) ? negative : positive)};
}

std::string dop_text(const std::optional<double>& dop) {
  return dop ? decimal(*dop, 1) : ABSENT;
}

Value dops(const Model& model) {
  const auto& fix = fix_of(model);
  return {text("P ", dop_text(model.sky() ? model.sky()->body.pdop : std::nullopt), "  H ",
               dop_text(known_dop(fix.hdop())), "  V ", dop_text(known_dop(fix.vdop())))};
}

constexpr uint64_t YEAR_10000_US = 253'402'300'800'000'000;

Value utc(const pb::GnssData& fix) {
  if (!fix.has_utc_time_us() || fix.utc_time_us() >= YEAR_10000_US) return {};
  std::string time = iso_time(static_cast<int64_t>(fix.utc_time_us()), 3);
  time[10] = ' ';
  time.pop_back();
  return {time};
}

Value local_time(const Model& model) {
  const auto& fix = fix_of(model);
  if (!model.zone() || model.zone()->body.source() == pb::TimeZone::NONE) return {"zone not known"};
  const auto& zone = model.zone()->body;
  constexpr int64_t DAY_MIN = int64_t{24} * 60;
  const int64_t minutes = int64_t{zone.hour_offset()} * 60 + zone.minute_offset();
  if (std::abs(minutes) >= DAY_MIN) return {"zone out of range", Style::bad};
  const auto two = [](int64_t value) { return text(value < 10 ? "0" : "", value); };
  std::string out = text(minutes < 0 ? "-" : "+", two(std::abs(minutes) / 60), ":",
                         two(std::abs(minutes) % 60), zone.summer_time() ? ", summer" : "");
  if (fix.has_utc_time_us() && fix.utc_time_us() < YEAR_10000_US) {
    const int64_t local_us = static_cast<int64_t>(fix.utc_time_us()) + minutes * 60'000'000;
    out = iso_time(local_us, 1).substr(11, 8) + "  " + out;
  }
  return {out};
}

Value antenna(const Model& model) {
  if (model.signal(topic::ANTENNA_SHORT_CIRCUIT) == 1U) return {"short circuit", Style::bad};
  if (model.signal(topic::ANTENNA_OPEN_CIRCUIT) == 1U) return {"open circuit", Style::bad};
  if (model.health() && model.health()->body.has_antenna_status()) {
    const uint32_t status = model.health()->body.antenna_status();
    static const Value VALUES[] = {{"not reported"},
                                   {"unknown"},
                                   {"OK", Style::good},
                                   {"short circuit", Style::bad},
                                   {"open circuit", Style::bad}};
    if (status < std::size(VALUES)) return VALUES[status];
  }
  return model.signal(topic::ANTENNA_OPEN_CIRCUIT) ? Value{"OK", Style::good}
                                                   : Value{"not reported", Style::dim};
}

Value module_error(const Model& model) {
  const auto error = model.signal(topic::MODULE_ERROR);
  if (!error) return {"not reported", Style::dim};
  return *error == 0 ? Value{"no", Style::good} : Value{"yes", Style::bad};
}

Value source(const Model& model) {
  // The service announces it once, when it starts, and the broker does not keep that.
  if (!model.source()) return {"not announced since start", Style::dim};
  switch (model.source()->body.source()) {
    case pb::GnssSource::LOCAL_RECEIVER:
      return {"local receiver"};
    case pb::GnssSource::CAN:
      return {"CAN"};
    default:
      return {"unknown"};
  }
}

std::string systems_text(uint32_t bits) {
  constexpr const char* NAMES[] = {"GPS", "GLONASS", "BeiDou", "Galileo"};
  std::string out;
  for (size_t i = 0; i < std::size(NAMES); ++i) {
    if ((bits >> i & 1U) != 0) out.append(out.empty() ? "" : "+").append(NAMES[i]);
  }
  return out;
}

Value systems(const Model& model) {
  if (!model.health()) return {};
  const auto& health = model.health()->body;
  if (health.has_enabled_systems()) return {systems_text(health.enabled_systems())};
  return health.has_wanted_systems() ? Value{systems_text(health.wanted_systems()) + " wanted"} : Value{};
}

Value receiver(const Model& model) {
  if (!model.health() || !model.health()->body.has_baud_rate()) return {};
  return {text(model.health()->body.baud_rate(), " bit/s")};
}

Value setup(const Model& model) {
  if (!model.health() || !model.health()->body.has_sequence_step()) return {};
  return {model.health()->body.sequence_step()};
}

Value losses(const Model& model) {
  if (!model.health()) return {};
  const auto& health = model.health()->body;
  const bool any = health.bytes_dropped() + health.bad_sentences() + health.naks() > 0;
  return {text(health.bytes_dropped(), " bytes, ", health.bad_sentences(), " bad, ", health.naks(), " NAK"),
          any ? Style::warn : Style::plain};
}

Value rate(const Model& model) {
  const TopicState* const state = model.topic(topic::GNSS_DATA);
  if (state == nullptr) return {};
  return {text(decimal(state->rate_hz(), 1), " Hz, longest gap ", duration_text(state->longest_gap_ns))};
}

Value delay(const Model& model) {
  if (!model.fix()) return {};
  const uint64_t begin_ns = model.fix()->body.timestamp_ns(), end_ns = model.fix()->boot_ns;
  if (begin_ns == 0 || begin_ns > end_ns) return {};
  return {text((end_ns - begin_ns) / 1'000'000, " ms after epoch start")};
}

Value undecodable(const Model& model) {
  return {text(model.undecodable(), " messages"), model.undecodable() > 0 ? Style::bad : Style::plain};
}

struct FieldRow {
  const char* label;  // null: an empty row
  Value (*value)(const Model& model);
};

constexpr FieldRow FIELDS[] = {
    {"Latitude",
     [](const Model& m) { return angle(fix_of(m).has_latitude(), fix_of(m).latitude(), 'N', 'S'); }},
    {"Longitude",
     [](const Model& m) { return angle(fix_of(m).has_longitude(), fix_of(m).longitude(), 'E', 'W'); }},
    {"Accuracy",
     [](const Model& m) { return number(fix_of(m).has_accuracy(), fix_of(m).accuracy(), 1, " m"); }},
    {"Speed", [](const Model& m) { return number(fix_of(m).has_speed(), fix_of(m).speed(), 1, " km/h"); }},
    {"Course",
     [](const Model& m) { return number(fix_of(m).has_heading(), fix_of(m).heading(), 1, " deg"); }},
    {"Altitude",
     [](const Model& m) { return number(fix_of(m).has_altitude(), fix_of(m).altitude(), 1, " m"); }},
    {"DOP", dops},
    {"UTC", [](const Model& m) { return utc(fix_of(m)); }},
    {"Local time", local_time},
    {nullptr, nullptr},
    {"Antenna", antenna},
    {"Module error", module_error},
    {"Source", source},
    {"Systems", systems},
    {"Receiver", receiver},
    {"Setup", setup},
    {"Dropped", losses},
    {"Rate", rate},
    {"Delay", delay},
    {"Undecodable", undecodable},
};

Row field_row(const FieldRow& field, const Model& model) {
  Row row;
  if (field.label == nullptr) return row;
  const Value value = field.value(model);
  row.add(" ").column(field.label, LABEL_WIDTH, Style::label);
  const size_t space = FIELDS_WIDTH - 1 - row.width();
  return row.column(value.text, static_cast<int>(std::min(value.text.size(), space)), value.style);
}

}  // namespace

Rows fix_page(const Model& model, const View& view) {
  Rows rows;
  for (const auto& field : FIELDS) rows.push_back(field_row(field, model));
  const Rows sky = sky_rows(model, view.width - FIELDS_WIDTH, rows.size());
  for (size_t i = 0; i < sky.size(); ++i) rows[i].fit(FIELDS_WIDTH).add(sky[i]);
  return rows;
}

}  // namespace ecu::koru::tap::live
