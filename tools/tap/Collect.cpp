#include "tools/tap/Collect.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/base/Logging.h"
#include "platform/com/Topics.h"
#include "tools/tap/Fields.h"
#include "tools/tap/Fix.h"

namespace ecu::koru::tap {

namespace {

struct GroupRow {
  const std::string& topic;
  FixGroup group;
};
const std::array GROUPS = {GroupRow{topic::VP1_TX, FixGroup::VP1}, GroupRow{topic::VP2_TX, FixGroup::VP2},
                           GroupRow{topic::VDS_TX, FixGroup::VDS}, GroupRow{topic::TD_TX, FixGroup::TD},
                           GroupRow{topic::P2C1_TX, FixGroup::P2C1}};

FixSample sample(const Arrival& arrival, const Envelope& envelope, const pb::GnssData& fix) {
  FixSample out{.wall_us = arrival.wall_us,
                .arrival_ns = arrival.boot_ns,
                .sent_ns = envelope.timestamp_ns,
                .status = fix.status(),
                .position = exact_position(fix),
                .utc_us = {}};
  if (fix.has_utc_time_us()) out.utc_us = fix.utc_time_us();
  return out;
}

}  // namespace

void collect(const Arrival& arrival, Statistics& statistics) {
  statistics.count_message();
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  if (decoded.row == nullptr) {
    statistics.count_unknown();
    return;
  }
  if (!decoded.problem.empty()) {
    statistics.count_undecodable(logging::text(safe_text(arrival.topic), ": ", decoded.problem));
    return;
  }
  if (arrival.retained) return;
  if (const auto* const fix = std::get_if<pb::GnssData>(&decoded.body)) {
    statistics.take(sample(arrival, *decoded.envelope, *fix));
    return;
  }
  const auto* const row =
      std::find_if(GROUPS.begin(), GROUPS.end(), [&](const auto& r) { return r.topic == arrival.topic; });
  if (row != GROUPS.end()) statistics.take(row->group);
}

}  // namespace ecu::koru::tap
