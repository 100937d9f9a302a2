#include <algorithm>

#include "platform/base/Logging.h"
#include "tools/tap/Fields.h"
#include "tools/tap/live/Layout.h"

namespace ecu::koru::tap::live {

namespace {

using logging::text;

struct Column {
  const char* heading;
  int width;  // with the blank before it
  std::string (*value)(const TopicState& state, const View& view);
};

std::string rate_text(const TopicState& state) {
  constexpr double FAST_HZ = 1000;  // too wide with decimals
  if (state.arrivals.size() < 2) return "-";
  return decimal(state.rate_hz(), state.rate_hz() < FAST_HZ ? 1 : 0);
}

std::string delay_text(const TopicState& state) {
  constexpr uint64_t LONG_NS = 1'000'000'000;
  if (!state.delay_ns) return "-";
  if (*state.delay_ns >= LONG_NS) return duration_text(*state.delay_ns);
  return decimal(static_cast<double>(*state.delay_ns) / 1e6, 1) + " ms";
}

constexpr Column COLUMNS[] = {
    {"messages", 9, [](const TopicState& s, const View&) { return text(s.messages); }},
    {"Hz", 6, [](const TopicState& s, const View&) { return rate_text(s); }},
    {"delay", 9, [](const TopicState& s, const View&) { return delay_text(s); }},
    {"gap", 8,
     [](const TopicState& s, const View&) {
       return s.arrivals.size() < 2 ? "-" : duration_text(s.longest_gap_ns);
     }},
    {"age", 8,
     [](const TopicState& s, const View& v) {
       return s.arrivals.empty() ? "kept" : age_text(v, s.arrivals.back());
     }},
};
constexpr int BAD_WIDTH = 4;

int topic_width(const View& view) {
  int width = static_cast<int>(view.width) - BAD_WIDTH;
  for (const auto& column : COLUMNS) width -= column.width;
  return width;
}

Row heading(const View& view) {
  Row row;
  row.column(" Topic", topic_width(view), Style::label);
  for (const auto& column : COLUMNS) row.column(column.heading, -column.width, Style::label);
  return row.column("bad", -BAD_WIDTH, Style::label);
}

/// Cuts a topic that is too long at its beginning: the end says more.
std::string shown_topic(std::string_view topic, size_t width) {
  const std::string safe = logging::escaped(topic, std::string_view::npos);
  return safe.size() <= width ? safe : "~" + safe.substr(safe.size() + 1 - width);
}

Row topic_row(std::string_view topic, const TopicState& state, const View& view) {
  const int width = topic_width(view) - 1;
  Row row;
  row.add(" ").column(shown_topic(topic, static_cast<size_t>(width)), width);
  for (const auto& column : COLUMNS) row.add(" ").column(column.value(state, view), 1 - column.width);
  return row.add(" ").column(text(state.undecodable), 1 - BAD_WIDTH,
                             state.undecodable > 0 ? Style::bad : Style::dim);
}

}  // namespace

Rows bus_page(const Model& model, const View& view) {
  Rows rows{heading(view)};
  for (const auto& [topic, state] : model.topics()) {
    rows.push_back(topic_row(topic, state, view));
    if (!state.problem.empty()) rows.push_back(Row().add("   " + state.problem, Style::bad));
  }
  if (model.left_out() > 0)
    rows.push_back(Row().add(text(" ", model.left_out(), " messages of further topics"), Style::dim));
  return rows;
}

}  // namespace ecu::koru::tap::live
