#include <algorithm>

#include "platform/base/Logging.h"
#include "tools/tap/CanFrame.h"
#include "tools/tap/Fields.h"
#include "tools/tap/GroupView.h"
#include "tools/tap/live/Layout.h"

namespace ecu::koru::tap::live {

namespace {

using logging::text;

constexpr size_t CELL_WIDTH = 40;
constexpr uint64_t OLD_NS = 3'000'000'000;

bool is_can(const TopicState& state) {
  return state.group && state.group->body.definition().can_id != 0;
}

Row group_row(std::string_view topic, const TopicState& state, const View& view) {
  const auto& definition = state.group->body.definition();
  const bool old = view.now.boot_ns > state.group->boot_ns + OLD_NS;
  Row row;
  row.add(" ")
      .add(definition.name, Style::label)
      .add("  " + can_id_text(definition.can_id, definition.extended));
  row.add("  ").add(topic, Style::dim).add(text("  ", decimal(state.rate_hz(), 1), " Hz  "));
  return row.add(age_text(view, state.group->boot_ns) + " old", old ? Style::warn : Style::plain);
}

/// Returns "name value unit" in a cell. A name that is too long is cut, not the value.
Row cell(const rt::SignalGroup& group, const rt::Signal& signal) {
  const std::string value = value_text(group, signal);
  const std::string name = logging::escaped(signal.name());
  const bool has_value = signal.status() == rt::SignalStatus::VALID;
  const size_t space = CELL_WIDTH - std::min(CELL_WIDTH, value.size() + 4);
  Row row;
  row.add("  ").column(name, static_cast<int>(std::min(name.size(), space))).add(" ");
  return row.add(value, has_value ? Style::good : Style::dim).fit(CELL_WIDTH - 1).add(" ");
}

void add_group(Rows& rows, std::string_view topic, const TopicState& state, const View& view) {
  rows.push_back(group_row(topic, state, view));
  size_t in_row = view.width;
  const rt::SignalGroup& group = state.group->body;
  for (const auto& signal : group.signals()) {
    if (in_row + CELL_WIDTH > view.width) {
      rows.emplace_back();
      in_row = 0;
    }
    rows.back().add(cell(group, signal));
    in_row += CELL_WIDTH;
  }
}

}  // namespace

Rows can_page(const Model& model, const View& view) {
  Rows rows;
  for (const auto& [topic, state] : model.topics()) {
    if (is_can(state)) add_group(rows, topic, state, view);
  }
  for (const auto& [topic, state] : model.topics()) {
    if (!state.group || is_can(state)) continue;
    Row& row = rows.emplace_back();
    row.add(" ").add(topic, Style::label);
    for (const auto& signal : state.group->body.signals())
      row.add("  " + value_text(state.group->body, signal));
  }
  if (rows.empty()) rows.push_back(Row().add(" no signal group yet", Style::dim));
  return rows;
}

}  // namespace ecu::koru::tap::live
