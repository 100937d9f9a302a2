#include "tools/tap/NmeaPrinter.h"

#include "platform/com/Topics.h"
#include "tools/tap/Sentences.h"

namespace ecu::koru::tap {

std::vector<std::string> NmeaPrinter::topics() const {
  return {topic::GNSS_DATA};
}

void NmeaPrinter::take(const Arrival& arrival) {
  if (!m_standard_output.write(sentences_of(arrival))) finish();
}

}  // namespace ecu::koru::tap
