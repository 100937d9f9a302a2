#include "tools/tap/Report.h"

#include <cmath>

#include "platform/base/Logging.h"
#include "tools/tap/IsoTime.h"

namespace ecu::koru::tap {

namespace {

using logging::text;

constexpr double NS_PER_S = 1e9;
constexpr double MS_PER_S = 1e3;
constexpr double GAP_S = static_cast<double>(Statistics::GAP_NS) / NS_PER_S;

double seconds(uint64_t ns) {
  return static_cast<double>(ns) / NS_PER_S;
}

double share(uint64_t part, uint64_t whole) {
  return whole > 0 ? static_cast<double>(part) / static_cast<double>(whole) : 0;
}

std::string position_text(const Position& position) {
  return text(decimal(std::fabs(position.latitude), 7), position.latitude < 0 ? " S " : " N ",
              decimal(std::fabs(position.longitude), 7), position.longitude < 0 ? " W" : " E");
}

std::string run_text(const Figures& figures) {
  std::string out =
      text("Run         ", iso_time(figures.beginning.wall_us, 3), ", ",
           decimal(seconds(figures.length_ns), 1), " s, ", figures.messages,
           " messages: ", figures.undecodable, " undecodable, ", figures.unknown, " of an unknown type\n");
  if (figures.undecodable > 0) {
    out.append(text("              the first one is ",
                    logging::escaped(figures.first_undecodable, std::string_view::npos), "\n"));
  }
  return out;
}

std::string fixes_text(const Figures& figures) {
  std::string out = text("Fixes       ", figures.fixes);
  for (size_t status = Figures::STATUSES; status-- > 0;) {
    const uint64_t count = figures.status[status];
    if (count == 0) continue;
    out.append(text(", ", count, " ", status_text(static_cast<int32_t>(status)), " (",
                    decimal(100 * share(count, figures.fixes), 2), " %)"));
  }
  if (figures.fixes_per_s) out.append(text(", ", decimal(*figures.fixes_per_s, 3), " valid ones a second"));
  out.append("\nFirst fix   ");
  return out.append(figures.first_fix_ns ? "after " + decimal(seconds(*figures.first_fix_ns), 3) + " s\n"
                                         : "none was valid\n");
}

std::string gaps_text(const Figures& figures) {
  std::string out =
      text("Gaps        ", figures.gaps, " of more than ", decimal(GAP_S, 1), " s without a valid fix");
  if (figures.gaps > 0) {
    out.append(text(", together ", decimal(seconds(figures.gap_ns), 3), " s, the longest ",
                    decimal(seconds(figures.longest_gap_ns), 3), " s"));
  }
  out.append("\n");
  for (const auto& gap : figures.first_gaps) {
    out.append(text("              ", iso_time(gap.wall_us, 3), "  ", decimal(seconds(gap.length_ns), 3),
                    gap.open ? " s, up to the end\n" : " s\n"));
  }
  const uint64_t further = figures.gaps - figures.first_gaps.size();
  return further > 0 ? out.append(text("              and ", further, " more\n")) : out;
}

std::string delay_text(const Figures& figures) {
  std::string out = "Delay       ";
  if (figures.delays > 0) {
    out.append(text("median ", decimal(*figures.delay_median_s * MS_PER_S, 2), " ms, 99 % ",
                    decimal(*figures.delay_99_s * MS_PER_S, 2), " ms, at most ",
                    decimal(*figures.delay_largest_s * MS_PER_S, 2), " ms"));
  } else {
    out.append("not known");
  }
  if (figures.delays_unknown > 0)
    out.append(text("; ", figures.delays_unknown, " fixes without a time stamp of this machine's clock"));
  return out.append("\n");
}

std::string scatter_text(const Figures& figures) {
  if (!figures.cep50_m) return "Position    no valid fix had one\n";
  return text("Position    CEP50 ", decimal(*figures.cep50_m, 2), " m, CEP95 ", decimal(*figures.cep95_m, 2),
              " m of ", figures.positions, " positions about ", figures.reference_given ? "" : "their mean, ",
              position_text(*figures.reference), "\n");
}

std::string groups_text(const Figures& figures) {
  if (!figures.has_groups()) return "CAN groups  none came\n";
  std::string out = text("CAN groups  ", figures.groups_due, " due\n");
  for (size_t i = 0; i < FIX_GROUP_NAMES.size(); ++i) {
    const auto& group = figures.groups[i];
    std::string name = FIX_GROUP_NAMES[i];
    name.resize(6, ' ');
    out.append(text("              ", name));
    out.append(group.count == 0 ? "none came\n"
                                : text(group.count, ", ", decimal(group.per_second, 3), " a second, ",
                                       group.missed, " missed\n"));
  }
  return out;
}

Json or_null(const std::optional<double>& value, double factor = 1) {
  return value ? Json(*value * factor) : Json(nullptr);
}

Json fixes_json(const Figures& figures) {
  Json out = {{"count", figures.fixes},
              {"per_second", or_null(figures.fixes_per_s)},
              {"first_after_s", figures.first_fix_ns ? Json(seconds(*figures.first_fix_ns)) : Json(nullptr)},
              {"statuses", Json::object()}};
  for (size_t status = 0; status < Figures::STATUSES; ++status) {
    const uint64_t count = figures.status[status];
    const std::string name = status == 0 ? "none" : std::to_string(status);
    out["statuses"][name] = {{"count", count}, {"share", share(count, figures.fixes)}};
  }
  return out;
}

Json gaps_json(const Figures& figures) {
  Json list = Json::array();
  for (const auto& gap : figures.first_gaps) {
    list.push_back(
        {{"after", iso_time(gap.wall_us, 6)}, {"seconds", seconds(gap.length_ns)}, {"open", gap.open}});
  }
  return {{"longer_than_s", GAP_S},
          {"count", figures.gaps},
          {"seconds", seconds(figures.gap_ns)},
          {"longest_s", seconds(figures.longest_gap_ns)},
          {"first", std::move(list)}};
}

Json position_json(const Figures& figures) {
  Json out = {{"count", figures.positions}, {"reference", nullptr}};
  if (figures.reference) {
    out["reference"] = {{"latitude", figures.reference->latitude},
                        {"longitude", figures.reference->longitude},
                        {"given", figures.reference_given}};
  }
  out["cep50_m"] = or_null(figures.cep50_m);
  out["cep95_m"] = or_null(figures.cep95_m);
  return out;
}

Json groups_json(const Figures& figures) {
  Json out = {{"due", figures.groups_due}};
  for (size_t i = 0; i < FIX_GROUP_NAMES.size(); ++i) {
    const auto& group = figures.groups[i];
    out[FIX_GROUP_NAMES[i]] = {
        {"count", group.count}, {"per_second", group.per_second}, {"missed", group.missed}};
  }
  return out;
}

}  // namespace

std::string report_text(const Figures& figures) {
  return run_text(figures) + fixes_text(figures) + gaps_text(figures) + delay_text(figures) +
         scatter_text(figures) + groups_text(figures);
}

Json report_json(const Figures& figures) {
  return {{"begin", iso_time(figures.beginning.wall_us, 6)},
          {"seconds", seconds(figures.length_ns)},
          {"messages", figures.messages},
          {"undecodable", figures.undecodable},
          {"first_undecodable", figures.undecodable > 0 ? Json(figures.first_undecodable) : Json(nullptr)},
          {"unknown", figures.unknown},
          {"fixes", fixes_json(figures)},
          {"gaps", gaps_json(figures)},
          {"delay_ms",
           {{"count", figures.delays},
            {"unknown", figures.delays_unknown},
            {"median", or_null(figures.delay_median_s, MS_PER_S)},
            {"p99", or_null(figures.delay_99_s, MS_PER_S)},
            {"largest", or_null(figures.delay_largest_s, MS_PER_S)}}},
          {"position", position_json(figures)},
          {"groups", groups_json(figures)}};
}

}  // namespace ecu::koru::tap
