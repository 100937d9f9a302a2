#include "tools/tap/NmeaFeed.h"

#include <utility>

#include "platform/com/Topics.h"
#include "tools/tap/Sentences.h"

namespace ecu::koru::tap {

std::vector<std::string> NmeaFeed::topics() const {
  return {topic::GNSS_DATA};
}

void NmeaFeed::take(const Arrival& arrival) {
  constexpr size_t MAX_WAITING = 1U << 20U;  // a quarter of an hour at 1 Hz
  const std::string sentences = sentences_of(arrival);
  const std::lock_guard lock(m_mutex);
  if (sentences.empty() || m_sentences.size() + sentences.size() > MAX_WAITING) return;
  m_sentences.append(sentences);
  m_arrived.raise();
}

void NmeaFeed::add_waits(std::vector<pollfd>& waits) const {
  waits.push_back({m_arrived.fd(), POLLIN, 0});
}

void NmeaFeed::serve() {
  std::string sentences;
  {
    const std::lock_guard lock(m_mutex);
    m_arrived.clear();
    sentences = std::exchange(m_sentences, {});
  }
  hand_over(sentences);
}

bool NmeaFeed::fail(std::string problem) {
  m_problem = std::move(problem);
  return false;
}

}  // namespace ecu::koru::tap
