#include "tools/tap/Recorder.h"

#include <unistd.h>

namespace ecu::koru::tap {

Recorder::~Recorder() {
  if (m_created && !m_keep) static_cast<void>(::unlink(m_options.file.c_str()));
}

bool Recorder::open() {
  const bool opened = m_file.open();
  m_created = opened && !m_options.replace;  // otherwise it may have been there before
  return opened;
}

void Recorder::begin(const Moment& beginning, bool /*live*/) {
  m_begun = true;
  append(header_line(beginning));
}

void Recorder::take(const Arrival& arrival) {
  m_keep = true;
  append(message_line(arrival));
}

void Recorder::close() {
  m_keep = m_keep || m_begun;
}

void Recorder::append(std::string_view line) {
  if (!m_file.append(line)) finish();
}

}  // namespace ecu::koru::tap
