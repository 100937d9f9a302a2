#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/com/Transport.h"
#include "tools/common/StopSignals.h"

namespace ecu::koru::tap {

/// Writes every received message to standard output, each flushed. message() runs on the transport's delivery
/// thread: a slow reader of the output slows the delivery down, and the broker drops messages, so that no
/// queue grows here.
class Viewer final : public com::ISubscriptionObserver {
 public:
  struct Style {
    bool json = false;
    bool sentences = false;
    uint64_t count = 0;  ///< ends after that many messages; 0: never
  };

  explicit Viewer(const Style& style) : m_style(style) {}

  void message(const std::string& topic, const com::Message& message) override;

  /// Is raised after the last message of the count, or if the output cannot be written.
  [[nodiscard]] const tool::Event& finished() const { return m_finished; }
  [[nodiscard]] uint64_t seen() const { return m_seen; }
  /// Returns the errno of a failed write; 0 if there was none or only the reader went away.
  [[nodiscard]] int write_error() const { return m_write_error; }

 private:
  const Style m_style;
  tool::Event m_finished;
  std::atomic<uint64_t> m_seen = 0;
  std::atomic<int> m_write_error = 0;
  uint64_t m_last_ns = 0;  // arrival of the newest message
  std::string m_last_topic;
};

}  // namespace ecu::koru::tap
