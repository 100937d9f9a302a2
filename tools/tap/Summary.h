#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/common/StandardOutput.h"
#include "tools/tap/Output.h"
#include "tools/tap/Statistics.h"

namespace ecu::koru::tap {

/// Writes the figures of the run to standard output when it ends.
class Summary final : public Output {
 public:
  struct Options {
    bool json = false;
    std::optional<Position> reference;  ///< the true position; empty: the mean is taken
    std::vector<std::string> topics;    ///< MQTT topic filters
  };

  explicit Summary(Options options) : m_options(std::move(options)), m_statistics(m_options.reference) {}

  [[nodiscard]] std::vector<std::string> topics() const override { return m_options.topics; }
  void begin(const Moment& beginning, bool live) override;
  void take(const Arrival& arrival) override;
  void close() override;
  [[nodiscard]] std::string problem() const override { return m_standard_output.problem(); }

 private:
  const Options m_options;
  Statistics m_statistics;
  bool m_begun = false;
  bool m_live = false;
  uint64_t m_newest_ns = 0;  // the latest arrival
  tool::StandardOutput m_standard_output;
};

}  // namespace ecu::koru::tap
