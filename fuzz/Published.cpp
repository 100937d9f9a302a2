// Checks of the messages that the service publishes.

#include <algorithm>
#include <array>
#include <cmath>

#include "fuzz/FuzzTarget.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"
#include "platform/rt/Signals.h"
#include "proto/nvxproto.pb.h"

namespace fuzz {

using namespace ecu::koru;

namespace {

// The years of the time/date group end here. Those of a sentence end in 2068.
constexpr uint64_t END_OF_2235_US = 8'394'105'600'000'000;

void check_fix(const com::Message& message) {
  const auto result = com::PbInternalMessageAdapter<pb::GnssData>(1).deserialize(message);
  require(result.success, "a fix decodes");
  const pb::GnssData& fix = result.body;
  for (const float value : {fix.longitude(), fix.latitude(), fix.speed(), fix.heading(), fix.altitude(),
                            fix.accuracy(), fix.hdop(), fix.vdop()}) {
    require(!std::isnan(value), "a number of a fix that is not available is absent");
  }
  require(fix.status() >= 1 && fix.status() <= 3, "the status is 1 to 3");
  require(fix.num_satellites() >= 0, "satellites are counted");
  require(fix.utc_time_us() < END_OF_2235_US, "UTC lies between 1970 and 2235");
  require(fix.timestamp_ns() <= message.timestamp_ns, "a fix began before it was published");
  for (const std::string& sentence : fix.nmea()) {
    require(sentence.starts_with("$") && sentence.ends_with("\r\n"), "a sentence is whole");
  }
}

void check_group(const std::string& topic, const com::Message& message) {
  const auto result = rt::SignalAdapter::instance().unpack(topic, message);
  require(result.success, "a signal group decodes");
  for (const auto& signal : result.group.signals()) {
    const auto status = signal.status();
    require(status == rt::SignalStatus::VALID || status == rt::SignalStatus::NOT_AVAILABLE,
            "a signal is valid or not available");
    if (!result.group.definition().raw_bytes) continue;
    require(signal.data().size() == 1 && signal.data()[0] <= 1, "a truth value is 0 or 1");
  }
}

}  // namespace

void check_published(com::MemoryTransport& bus) {
  const std::array GROUPS{topic::VP1_TX,         topic::VP2_TX,       topic::VDS_TX,
                          topic::TD_TX,          topic::P2C1_TX,      topic::ANTENNA_OPEN_CIRCUIT,
                          topic::GNSS_TIMESTAMP, topic::MODULE_ERROR, topic::ANTENNA_SHORT_CIRCUIT};
  for (const auto& [topic, message, at_ns] : bus.records()) {
    require(message.valid && !message.retained, "a message is valid and not retained");
    if (topic == topic::GNSS_DATA) {
      check_fix(message);
    } else if (topic == topic::GNSS_SOURCE) {
      require(com::PbInternalMessageAdapter<pb::GnssSource>(1).deserialize(message).body.has_source(),
              "the source is announced");
    } else if (topic == topic::SYSTIME_TD) {
      check_group(topic::TD_RX, message);
    } else {
      require(std::find(GROUPS.begin(), GROUPS.end(), topic) != GROUPS.end(),
              "the topic is one of the service's");
      check_group(topic, message);
    }
  }
  bus.clear_records();
}

}  // namespace fuzz
