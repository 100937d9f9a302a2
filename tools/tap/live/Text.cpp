#include "tools/tap/live/Text.h"

#include <algorithm>
#include <cstdlib>

#include "platform/base/Logging.h"

namespace ecu::koru::tap::live {

Row& Row::add(std::string_view text, Style style) {
  std::string safe = logging::escaped(text, std::string_view::npos);
  if (safe.empty()) return *this;
  m_width += safe.size();
  m_spans.push_back({std::move(safe), style});
  return *this;
}

Row& Row::bar(size_t length, Style style) {
  if (length == 0) return *this;
  m_width += length;
  m_spans.push_back({std::string(length, '#'), style, true});
  return *this;
}

Row& Row::add(const Row& row) {
  m_spans.insert(m_spans.end(), row.m_spans.begin(), row.m_spans.end());
  m_width += row.m_width;
  return *this;
}

Row& Row::column(std::string_view text, int width, Style style) {
  const auto wanted = static_cast<size_t>(std::abs(width));
  std::string safe = logging::escaped(text, std::string_view::npos);
  if (safe.size() > wanted) safe.replace(wanted - std::min<size_t>(wanted, 1), std::string::npos, "~");
  safe.insert(width > 0 ? safe.size() : 0, wanted - std::min(wanted, safe.size()), ' ');
  return add(safe, style);
}

Row& Row::fit(size_t width, Style style) {
  while (m_width > width) {
    Span& last = m_spans.back();
    const size_t cut = std::min(last.text.size(), m_width - width);
    last.text.resize(last.text.size() - cut);
    m_width -= cut;
    if (last.text.empty()) m_spans.pop_back();
  }
  return add(std::string(width - m_width, ' '), style);
}

std::string Row::text() const {
  std::string out;
  for (const auto& span : m_spans) out += span.text;
  return out;
}

}  // namespace ecu::koru::tap::live
