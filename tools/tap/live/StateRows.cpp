#include <algorithm>

#include "platform/base/Logging.h"
#include "tools/tap/Fix.h"
#include "tools/tap/Statistics.h"
#include "tools/tap/live/Layout.h"

namespace ecu::koru::tap::live {

namespace {

using logging::text;

constexpr uint64_t STALE_NS = 3'000'000'000;  // a unit publishes about once a second, fix or not

const char* mode_text(uint32_t mode) {
  constexpr const char* TEXTS[] = {"no fix", "2D", "3D"};
  return mode >= 1 && mode <= 3 ? TEXTS[mode - 1] : "?";
}

const char* quality_text(int32_t quality) {
  constexpr const char* TEXTS[] = {"none", "GNSS",      "differential GNSS", "PPS",
                                   "RTK",  "RTK float", "dead reckoning"};
  return quality >= 0 && quality <= 6 ? TEXTS[quality] : "?";
}

Style state_style(const pb::GnssData& fix, const std::optional<Latest<pb::GnssHealth>>& health) {
  if (fix.status() != VALID_STATUS) return Style::bad;
  return health && health->body.state() != pb::GnssHealth::VALID ? Style::warn : Style::good;
}

Row state_row(const Model& model, const View& view) {
  Row row;
  row.add(" ");
  const auto& fix = model.fix();
  if (!fix) return row.add("no message of the position yet", Style::warn);
  const uint64_t age_ns = view.now.boot_ns - std::min(view.now.boot_ns, fix->boot_ns);
  if (age_ns >= STALE_NS) {
    row.add("SILENT", Style::bad).add("  no message of the position for ", Style::bad);
    return row.add(duration_text(age_ns), Style::bad);
  }
  const Style style = state_style(fix->body, model.health());
  if (model.health()) row.add(pb::GnssHealth::State_Name(model.health()->body.state()), style).add("  ");
  row.add(text("status ", fix->body.status(), ", ", status_text(fix->body.status())), style);
  if (fix->body.has_fix()) row.add(text("  ", mode_text(fix->body.fix())), style);
  if (fix->body.has_quality()) row.add(text("  ", quality_text(fix->body.quality())));
  if (fix->body.has_num_satellites()) row.add(text("  ", fix->body.num_satellites(), " satellites"));
  return row.add("  " + duration_text(age_ns) + " old");
}

Row reason_row(const Model& model) {
  Row row;
  row.add(" ");
  if (!model.health()) return row.add("no health topic, so no reason", Style::dim);
  return row.add(model.health()->body.reason());
}

}  // namespace

Rows state_rows(const Model& model, const View& view) {
  return {state_row(model, view), reason_row(model)};
}

}  // namespace ecu::koru::tap::live
