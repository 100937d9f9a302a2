#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "sim/replay/Differences.h"

namespace ecu::koru::sim {

/// Compares the messages that the service sends to the receiver with those that it sent when the link was
/// recorded. Both come in the order of their times, which may differ by a quarter of a second. Times are us
/// since the service began.
class SentComparison {
 public:
  explicit SentComparison(Differences& differences) : m_differences(differences) {}

  void expect(int64_t at_us, const std::string& bytes) { m_expected.push_back({at_us, bytes}); }
  void found(int64_t at_us, const std::string& bytes) { m_found.push_back({at_us, bytes}); }
  /// Reports what has no counterpart by `now_us`.
  void settle(int64_t now_us);
  /// Nothing is known of what was sent after that time, so a message that is found later, or shortly before,
  /// needs no counterpart.
  void expect_nothing_after(int64_t at_us) { m_last_us = at_us; }
  /// No more messages come.
  void finish();

 private:
  struct Message {
    int64_t at_us;
    std::string bytes;
  };
  using Messages = std::deque<Message>;

  void match();
  [[nodiscard]] static size_t position(const Messages& messages, const Message& wanted);
  void drop_expected();
  void drop_found();

  Differences& m_differences;
  Messages m_expected;  // without a counterpart yet, as the other one
  Messages m_found;
  int64_t m_last_us = INT64_MAX;
};

}  // namespace ecu::koru::sim
