#include "tools/tap/CanLog.h"

#include "tools/tap/CanFrame.h"
#include "tools/tap/Decode.h"

namespace ecu::koru::tap {

namespace {

constexpr std::string_view OEM_TOPICS = "rt/oemcan/";

}  // namespace

std::vector<std::string> CanLog::topics() const {
  std::vector<std::string> out;
  for (const auto& group : rt::SignalAdapter::instance().database()->groups()) {
    for (const auto& topic : {group.tx_topic, group.rx_topic}) {
      if (!topic.empty()) out.push_back(topic);
    }
  }
  return out;
}

void CanLog::begin(const Moment& /*beginning*/, bool /*live*/) {
  if (!m_file.create()) finish();
}

void CanLog::take(const Arrival& arrival) {
  if (arrival.retained) return;
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  if (!decoded.group.is_valid()) return;
  const auto& interface =
      arrival.topic.starts_with(OEM_TOPICS) ? m_options.oem_interface : m_options.interface;
  if (!m_file.append(candump_line(arrival.wall_us, interface, decoded.group, m_options.source_address)))
    finish();
}

}  // namespace ecu::koru::tap
