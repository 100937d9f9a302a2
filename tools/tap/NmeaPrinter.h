#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "tools/tap/Output.h"

namespace ecu::koru::tap {

/// Writes the NMEA sentences of each fix to standard output, flushed. A slow reader slows the delivery down,
/// as with the viewer.
class NmeaPrinter final : public Output {
 public:
  [[nodiscard]] std::vector<std::string> topics() const override;
  void take(const Arrival& arrival) override;
  [[nodiscard]] std::string problem() const override;

 private:
  std::atomic<int> m_write_error = 0;  // an errno; 0 if only the reader went away
};

}  // namespace ecu::koru::tap
