#include "tools/tap/Replay.h"

namespace ecu::koru::tap {

void Replay::publish(const RecordedMessage& recorded) {
  const com::Message message{.timestamp_ns = recorded.boot_ns,
                             .payload = recorded.payload,
                             .valid = true,
                             .retained = recorded.retained};
  ++(m_transport.publish(recorded.topic, message) < 0 ? m_dropped : m_published);
}

}  // namespace ecu::koru::tap
