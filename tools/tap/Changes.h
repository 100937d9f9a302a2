#pragma once

#include <string>
#include <unordered_map>

#include "tools/tap/Arrival.h"

namespace ecu::koru::tap {

/// Finds the messages whose content differs from the last one of their topic. Not part of the content: the
/// envelope, times and ages in the body, the date and time of a signal group, and a fix's sentences, which
/// all have the time in them. For one thread.
class Changes {
 public:
  /// Returns true for the first message of a topic, and if the content differs from the one before.
  [[nodiscard]] bool differs(const Arrival& arrival);

 private:
  std::unordered_map<std::string, std::string> m_last;  // content by topic
};

}  // namespace ecu::koru::tap
