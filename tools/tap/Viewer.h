#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/common/StandardOutput.h"
#include "tools/tap/Changes.h"
#include "tools/tap/Output.h"

namespace ecu::koru::tap {

/// Writes every message to standard output, each flushed. A slow reader of the output slows the delivery
/// down, and the broker drops messages, so that no queue grows here. On a terminal, lines are broken to its
/// width.
class Viewer final : public Output {
 public:
  struct Options {
    std::vector<std::string> topics{"system/#", "rt/#", "systime/#"};
    bool json = false;
    bool sentences = false;
    bool changes = false;  ///< only messages whose content differs from their topic's last one
    uint64_t count = 0;    ///< ends after that many messages; 0: never
  };

  explicit Viewer(Options options) : m_options(std::move(options)) {}

  [[nodiscard]] std::vector<std::string> topics() const override { return m_options.topics; }
  void take(const Arrival& arrival) override;
  [[nodiscard]] std::string problem() const override { return m_standard_output.problem(); }

  /// Returns how many messages were written.
  [[nodiscard]] uint64_t seen() const { return m_seen; }

 private:
  const Options m_options;
  Changes m_changes;
  std::atomic<uint64_t> m_seen = 0;
  tool::StandardOutput m_standard_output;
};

}  // namespace ecu::koru::tap
