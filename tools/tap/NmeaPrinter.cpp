#include "tools/tap/NmeaPrinter.h"

#include <cerrno>
#include <cstdio>

#include "platform/com/Topics.h"
#include "tools/tap/Sentences.h"

namespace ecu::koru::tap {

std::vector<std::string> NmeaPrinter::topics() const {
  return {topic::GNSS_DATA};
}

void NmeaPrinter::take(const Arrival& arrival) {
  const std::string text = sentences_of(arrival);
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return;
  if (errno != EPIPE) m_write_error = errno;
  finish();
}

std::string NmeaPrinter::problem() const {
  return m_write_error != 0 ? cannot_write("", m_write_error) : std::string();
}

}  // namespace ecu::koru::tap
