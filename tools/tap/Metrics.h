#pragma once

#include <optional>
#include <string>

#include "proto/nvxproto.pb.h"
#include "tools/tap/Statistics.h"

namespace ecu::koru::tap {

/// The newest health message, and how long ago it came.
struct Health {
  pb::GnssHealth message;
  double age_s = 0;
};

/// Returns the figures in the text format that Prometheus reads. Without health, none of its metrics are
/// there. `connected`: to the broker; empty if the messages do not come from a bus. A figure that is not
/// known is left out. A pure function, for any thread.
[[nodiscard]] std::string metrics_text(const Figures& figures, const std::optional<Health>& health,
                                       std::optional<bool> connected = std::nullopt);

}  // namespace ecu::koru::tap
