#include "tools/tap/live/Layout.h"

#include <algorithm>

#include "platform/base/Logging.h"
#include "tools/tap/Fields.h"
#include "tools/tap/IsoTime.h"
#include "tools/tap/Lines.h"

namespace ecu::koru::tap::live {

namespace {

using logging::text;

struct PageRow {
  Page page;
  const char* name;
  Rows (*rows)(const Model& model, const View& view);
};
constexpr PageRow PAGE_ROWS[] = {{Page::fix, " 1 Fix ", fix_page},
                                 {Page::sky, " 2 Sky ", sky_page},
                                 {Page::can, " 3 CAN ", can_page},
                                 {Page::bus, " 4 Bus ", bus_page}};

constexpr size_t ROWS_AROUND = 2;  // title and keys

Row marks(const View& view) {
  Row row;
  row.add(" ", Style::title);
  if (view.recorded && !view.over) row.add(" recording ", Style::title);
  if (view.over) row.add(" RECORDING ENDED ", Style::alert);
  if (!view.connected) row.add(" the broker is away ", Style::alert);
  if (view.paused) row.add(" PAUSED ", Style::alert);
  return row;
}

Row title(const View& view) {
  std::string time = iso_time(view.now.wall_us, 1).substr(0, 19) + " UTC ";
  time[10] = ' ';
  Row row;
  row.add(" satnav-tap  ", Style::title);
  const Row after = marks(view);
  const size_t space = view.width - std::min(view.width, row.width() + after.width() + time.size());
  row.column(view.source, static_cast<int>(std::min(view.source.size(), space)), Style::title).add(after);
  row.fit(view.width - std::min(view.width, time.size()), Style::title);
  return row.add(time, Style::title).fit(view.width, Style::title);
}

Row keys(const View& view) {
  Row row;
  for (const auto& page : PAGE_ROWS)
    row.add(page.name, page.page == view.page ? Style::selected : Style::plain).add(" ");
  return row.add("  space pause  arrows scroll  q quit", Style::dim).fit(view.width);
}

Rows page_rows(const Model& model, const View& view) {
  Rows rows = state_rows(model, view);
  const auto& row = PAGE_ROWS[static_cast<size_t>(view.page)];
  for (auto& each : row.rows(model, view)) rows.push_back(std::move(each));
  return rows;
}

/// The needed size comes first, in short rows, for the smallest terminals.
Rows too_small(const View& view) {
  Rows rows{Row().add("80x24 is needed,"), Row().add(text("this is ", view.width, "x", view.height, ".")),
            Row().add("q quits.")};
  rows.resize(view.height);
  return rows;
}

bool is_too_small(const View& view) {
  return view.width < MIN_WIDTH || view.height < MIN_HEIGHT;
}

}  // namespace

Rows layout(const Model& model, const View& view) {
  Rows rows;
  if (is_too_small(view)) {
    rows = too_small(view);
  } else {
    rows.push_back(title(view));
    Rows page = page_rows(model, view);
    const size_t space = view.height - ROWS_AROUND;
    const size_t first = std::min(view.scroll, page.size() - std::min(page.size(), space));
    page.erase(page.begin(), page.begin() + static_cast<std::ptrdiff_t>(first));
    const size_t below = page.size() - std::min(page.size(), space);
    page.resize(space);
    if (below > 0) page.back() = Row().add(text(" ... ", below + 1, " more rows"), Style::dim);
    for (auto& row : page) rows.push_back(std::move(row));
    rows.push_back(keys(view));
  }
  for (auto& row : rows) row.fit(view.width);
  return rows;
}

size_t rows_beyond(const Model& model, const View& view) {
  if (is_too_small(view)) return 0;
  const size_t rows = page_rows(model, view).size();
  return rows - std::min(rows, view.height - ROWS_AROUND);
}

std::string duration_text(uint64_t ns) {
  constexpr uint64_t TENTH = 100'000'000;
  constexpr uint64_t SECOND = 10 * TENTH;
  constexpr uint64_t MINUTE = 60 * SECOND;
  if (ns < 10 * SECOND) return text(ns / SECOND, ".", ns / TENTH % 10, " s");
  if (ns < 120 * SECOND) return text(ns / SECOND, " s");
  if (ns < 120 * MINUTE) return text(ns / MINUTE, " min");
  return text(ns / (60 * MINUTE), " h");
}

std::string age_text(const View& view, uint64_t boot_ns) {
  return duration_text(view.now.boot_ns - std::min(view.now.boot_ns, boot_ns));
}

}  // namespace ecu::koru::tap::live
