#include <algorithm>
#include <map>

#include "platform/base/Logging.h"
#include "tools/tap/Fields.h"
#include "tools/tap/live/Layout.h"
#include "tools/tap/live/SkyRows.h"

namespace ecu::koru::tap::live {

namespace {

using logging::text;

constexpr size_t COLUMN_WIDTH = 40;
constexpr size_t MAX_BAR = 30;
constexpr int FULL_BAR_DBHZ = 55;
constexpr int GOOD_DBHZ = 35;
constexpr int FAIR_DBHZ = 25;

Style style_of(const Satellite& satellite) {
  const int cn0 = satellite.cn0_dbhz.value_or(0);
  if (!satellite.used) return Style::dim;
  return cn0 >= GOOD_DBHZ ? Style::good : cn0 >= FAIR_DBHZ ? Style::warn : Style::bad;
}

std::string number_text(std::optional<int> value) {
  return value ? text(*value) : "-";
}

Row heading() {
  return Row().add("   Satellite    El  Az CN0 dBHz", Style::label);
}

Row satellite_row(const Satellite& satellite, size_t width) {
  Row row;
  const Style style = satellite.used ? Style::plain : Style::dim;
  row.add(satellite.used ? " * " : "   ", Style::good).column(name_of(satellite.system), 7, style);
  row.column(number_text(satellite.number), -4, style).add(" ");
  row.column(number_text(satellite.elevation_deg), -3, style).add(" ");
  row.column(number_text(satellite.azimuth_deg), -3, style).add(" ");
  row.column(number_text(satellite.cn0_dbhz), -3, style).add(" ");
  const size_t space = std::min(MAX_BAR, width - std::min(width, row.width() + 1));
  const auto length = static_cast<size_t>(std::clamp(satellite.cn0_dbhz.value_or(0), 0, FULL_BAR_DBHZ));
  return row.bar(length * space / FULL_BAR_DBHZ, style_of(satellite)).fit(width);
}

Row nothing_row(const Model& model) {
  const bool has_fix = model.fix().has_value();
  return Row().add(has_fix ? "   no satellites in the sentences" : "   no fix yet", Style::dim);
}

/// Returns "GPS 8 of 10, GLONASS 6 of 8 used".
std::string summary(const Sky& sky) {
  std::map<System, std::pair<size_t, size_t>> counts;  // used, in view
  for (const auto& satellite : sky.satellites) {
    counts[satellite.system].first += satellite.used ? 1 : 0;
    ++counts[satellite.system].second;
  }
  std::string out;
  for (const auto& [system, count] : counts)
    out.append(out.empty() ? "" : ", ").append(text(name_of(system), " ", count.first, " of ", count.second));
  return out + " used";
}

}  // namespace

Rows sky_rows(const Model& model, size_t width, size_t max_rows) {
  if (!model.sky() || model.sky()->body.satellites.empty()) return {heading(), nothing_row(model)};
  const auto& satellites = model.sky()->body.satellites;
  Rows rows{heading()};
  for (const auto& satellite : satellites) rows.push_back(satellite_row(satellite, width));
  if (rows.size() <= max_rows) return rows;
  const size_t left_out = rows.size() - max_rows + 1;
  rows.resize(max_rows);
  rows.back() = Row().add(text("   ... ", left_out, " more on page 2"), Style::dim);
  return rows;
}

Rows sky_page(const Model& model, const View& view) {
  if (!model.sky() || model.sky()->body.satellites.empty()) return {heading(), nothing_row(model)};
  const Sky& sky = model.sky()->body;
  const size_t columns = view.width / COLUMN_WIDTH;
  const size_t height = (sky.satellites.size() + columns - 1) / columns;
  Rows rows(1);
  rows[0].add(" " + summary(sky));
  rows[0].add(text(", seen ", age_text(view, model.sky()->boot_ns), " ago"));
  Row& headings = rows.emplace_back();
  for (size_t column = 0; column < columns; ++column) headings.add(heading().fit(COLUMN_WIDTH));
  for (size_t i = 0; i < height; ++i) {
    Row& row = rows.emplace_back();
    for (size_t k = i; k < sky.satellites.size(); k += height)
      row.add(satellite_row(sky.satellites[k], COLUMN_WIDTH));
  }
  return rows;
}

}  // namespace ecu::koru::tap::live
