#include "tools/tap/Summary.h"

#include <algorithm>

#include "platform/base/Time.h"
#include "tools/tap/Collect.h"
#include "tools/tap/Report.h"

namespace ecu::koru::tap {

void Summary::begin(const Moment& beginning, bool live) {
  m_begun = true;
  m_live = live;
  m_newest_ns = beginning.boot_ns;
  m_statistics.begin(beginning);
}

void Summary::take(const Arrival& arrival) {
  m_newest_ns = std::max(m_newest_ns, arrival.boot_ns);
  collect(arrival, m_statistics);
}

void Summary::close() {
  if (!m_begun) return;
  const uint64_t end_ns = m_live ? static_cast<uint64_t>(time_source().boot_ns()) : m_newest_ns;
  const Figures figures = m_statistics.figures(end_ns);
  const std::string text =
      m_options.json ? report_json(figures).dump(-1, ' ', true) + "\n" : report_text(figures);
  m_standard_output.write(text);
}

}  // namespace ecu::koru::tap
