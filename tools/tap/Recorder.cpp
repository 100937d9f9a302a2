#include "tools/tap/Recorder.h"

namespace ecu::koru::tap {

void Recorder::begin(const Moment& beginning, bool /*live*/) {
  if (!m_file.create() || !m_file.append(header_line(beginning))) finish();
}

void Recorder::take(const Arrival& arrival) {
  if (!m_file.append(message_line(arrival))) finish();
}

}  // namespace ecu::koru::tap
