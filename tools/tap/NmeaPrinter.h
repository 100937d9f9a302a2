#pragma once

#include <string>
#include <vector>

#include "tools/common/StandardOutput.h"
#include "tools/tap/Output.h"

namespace ecu::koru::tap {

/// Writes the NMEA sentences of each fix to standard output, flushed. A slow reader slows the delivery down,
/// as with the viewer.
class NmeaPrinter final : public Output {
 public:
  [[nodiscard]] std::vector<std::string> topics() const override;
  void take(const Arrival& arrival) override;
  [[nodiscard]] std::string problem() const override { return m_standard_output.problem(); }

 private:
  tool::StandardOutput m_standard_output;
};

}  // namespace ecu::koru::tap
