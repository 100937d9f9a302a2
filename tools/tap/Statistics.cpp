#include "tools/tap/Statistics.h"

#include <algorithm>

#include "tools/tap/Delay.h"
#include "tools/tap/Fix.h"

namespace ecu::koru::tap {

namespace {

constexpr uint64_t FRAME_GAP_NS = 950'000'000;  // of the service: docs/bus.md, "The vehicle's buses"
constexpr double NS_PER_S = 1e9;
constexpr double US_PER_S = 1e6;

/// Returns 0 if the clock went backwards.
uint64_t elapsed(uint64_t from, uint64_t to) {
  return to > from ? to - from : 0;
}

std::optional<double> seconds(const std::optional<double>& us) {
  return us ? std::optional(*us / US_PER_S) : std::nullopt;
}

}  // namespace

std::string_view status_text(int32_t status) {
  constexpr std::string_view TEXTS[] = {"without a status", "nothing known", "warning", "valid"};
  return TEXTS[status > 0 && status <= VALID_STATUS ? status : 0];
}

bool Figures::has_groups() const {
  return std::any_of(groups.begin(), groups.end(), [](const Group& group) { return group.count > 0; });
}

void Statistics::begin(const Moment& beginning) {
  m_figures.beginning = beginning;
}

void Statistics::count_undecodable(const std::string& what) {
  if (m_figures.undecodable++ == 0) m_figures.first_undecodable = what;
}

void Statistics::take(const FixSample& fix) {
  ++m_figures.fixes;
  const bool known = fix.status > 0 && fix.status <= VALID_STATUS;
  ++m_figures.status[known ? static_cast<size_t>(fix.status) : 0];
  count_delay(fix);
  if (fix.status == VALID_STATUS) take_valid(fix);
  if (!is_due_on_can(fix)) return;
  if (m_last_due) judge_groups();
  m_last_due = fix;
  m_seen.fill(false);
}

void Statistics::count_delay(const FixSample& fix) {
  if (const auto delay = delay_ns(fix.sent_ns, fix.arrival_ns)) {
    m_delays_us.add(*delay / 1000);
  } else {
    ++m_figures.delays_unknown;
  }
}

void Statistics::take_valid(const FixSample& fix) {
  ++m_valid;
  if (m_last_valid) {
    const uint64_t length_ns = elapsed(m_last_valid->arrival_ns, fix.arrival_ns);
    if (length_ns > GAP_NS) count_gap({m_last_valid->wall_us, length_ns, false}, m_figures);
  } else {
    m_first_valid = fix;
    m_figures.first_fix_ns = elapsed(m_figures.beginning.boot_ns, fix.arrival_ns);
  }
  m_last_valid = fix;
  if (fix.position) m_scatter.add(*fix.position);
}

void Statistics::count_gap(const Gap& gap, Figures& out) const {
  ++out.gaps;
  out.gap_ns += gap.length_ns;
  out.longest_gap_ns = std::max(out.longest_gap_ns, gap.length_ns);
  if (out.first_gaps.size() < MAX_GAPS) out.first_gaps.push_back(gap);
}

/// The service's own rule: the first fix of each second of UTC, any other one 0.95 s after the last.
bool Statistics::is_due_on_can(const FixSample& fix) const {
  if (!m_last_due) return true;
  const auto second = [](uint64_t us) { return us / 1'000'000; };
  const bool new_second =
      fix.utc_us && (!m_last_due->utc_us || second(*fix.utc_us) != second(*m_last_due->utc_us));
  return new_second || elapsed(m_last_due->sent_ns, fix.sent_ns) > FRAME_GAP_NS;
}

void Statistics::take(FixGroup group) {
  const auto index = static_cast<size_t>(group);
  ++m_figures.groups[index].count;
  m_seen[index] = true;
}

/// Each group must have come between two fixes that leave on the buses. This holds whether the groups of a
/// fix come before or after it. A group that never came is not listened to, or the unit does not send it.
void Statistics::judge_groups() {
  ++m_figures.groups_due;
  for (size_t i = 0; i < m_seen.size(); ++i) {
    auto& group = m_figures.groups[i];
    if (!m_seen[i] && group.count > 0) ++group.missed;
  }
}

Figures Statistics::figures(uint64_t now_ns) const {
  Figures out = m_figures;
  out.length_ns = elapsed(out.beginning.boot_ns, now_ns);
  for (auto& group : out.groups) {
    if (out.length_ns > 0)
      group.per_second = static_cast<double>(group.count) * NS_PER_S / static_cast<double>(out.length_ns);
  }
  if (m_valid > 1) {
    const uint64_t span_ns = elapsed(m_first_valid->arrival_ns, m_last_valid->arrival_ns);
    if (span_ns > 0)
      out.fixes_per_s = static_cast<double>(m_valid - 1) * NS_PER_S / static_cast<double>(span_ns);
  }
  if (m_last_valid) {
    const uint64_t open_ns = elapsed(m_last_valid->arrival_ns, now_ns);
    if (open_ns > GAP_NS) count_gap({m_last_valid->wall_us, open_ns, true}, out);
  }
  out.delays = m_delays_us.count();
  out.delay_sum_s = static_cast<double>(m_delays_us.sum()) / US_PER_S;
  out.delay_median_s = seconds(m_delays_us.percentile(0.5));
  out.delay_99_s = seconds(m_delays_us.percentile(0.99));
  if (out.delays > 0) out.delay_largest_s = static_cast<double>(m_delays_us.largest()) / US_PER_S;
  out.positions = m_scatter.count();
  out.reference_given = m_reference.has_value();
  out.reference = m_reference ? m_reference : m_scatter.mean();
  if (out.reference) {
    out.cep50_m = m_scatter.radius_m(*out.reference, 0.5);
    out.cep95_m = m_scatter.radius_m(*out.reference, 0.95);
  }
  return out;
}

}  // namespace ecu::koru::tap
