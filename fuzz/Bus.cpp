// Messages of other programs on the bus: envelopes, the observers' topics, and the variables read
// at the start.

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <array>
#include <cmath>
#include <memory>

#include "core/BusRequests.h"
#include "core/SystemParameters.h"
#include "fuzz/FuzzTarget.h"
#include "nmea/UtcCalendar.h"
#include "observe/GnssIcanObserver.h"
#include "observe/GnssObserver.h"
#include "observe/TimeZoneObserver.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/var/Variables.h"
#include "proto/nvxproto.pb.h"
#include "publish/GnssPublishMqtt.h"
#include "publish/GnssPublishSystime.h"

namespace fuzz {

using namespace ecu::koru;
using namespace ecu::koru::gpspub;

namespace {

using Refused = com::err::PbInternalDeserializationError;

/// Returns the error that the header's fields must cause; `None` if the body decides.
Refused verdict_of_header(Bytes payload) {
  const auto number = [&](size_t at, size_t width) {
    uint64_t value = 0;
    for (size_t i = width; i-- > 0;) value = value << 8 | payload[at + i];
    return value;
  };
  if (payload.size() < com::envelope::HEADER_LENGTH) return Refused::MessageTooShort;
  if (payload[0] != 0x09 || payload[9] != 0x11)
    return Refused::None;  // protobuf decides about another order of the fields
  if (number(1, 2) == 0) return Refused::ProtocolTypeNotUsed;
  if (number(3, 2) != com::envelope::HEADER_LENGTH) return Refused::HeaderLengthMismatch;
  if (number(5, 4) > payload.size() - com::envelope::HEADER_LENGTH) return Refused::BodyDecodeFailed;
  return Refused::None;
}

/// Returns the same bytes for the same body. The order of map entries is otherwise not fixed.
std::string serialized(const google::protobuf::MessageLite& body) {
  std::string bytes;
  google::protobuf::io::StringOutputStream stream(&bytes);
  google::protobuf::io::CodedOutputStream out(&stream);
  out.SetSerializationDeterministic(true);
  require(body.SerializeToCodedStream(&out), "a body that was read is whole");
  out.Trim();
  return bytes;
}

template <typename Body>
void check_envelope(const com::Message& message) {
  com::PbInternalMessageAdapter<Body> adapter(1);
  const auto result = adapter.deserialize(message);
  const Refused verdict = verdict_of_header(message.payload);
  require(verdict == Refused::None || result.error == verdict, "the header's fields decide");
  require(result.success == (result.error == Refused::None), "success is the absence of an error");
  if (!result.success) {
    require(result.body.ByteSizeLong() == 0, "what failed gives an empty body");
    return;
  }
  const auto again = adapter.serialize(result.body);
  require(again.success && again.message.valid, "a body that was read can be sent");
  const auto copy = com::PbInternalMessageAdapter<Body>(1).deserialize(again.message);
  require(copy.success && serialized(copy.body) == serialized(result.body), "a body survives its envelope");
}

constexpr std::array ENVELOPES{check_envelope<pb::GnssData>, check_envelope<pb::RtSignal>,
                               check_envelope<pb::GnssSource>, check_envelope<pb::TimeZone>,
                               check_envelope<pb::SystemParameters>};

/// Reads a message: its form (raw, enveloped or an enveloped signal), its length, its bytes.
com::Message next_message(Input& input) {
  const uint8_t form = input.byte();
  const Bytes bytes = input.take(input.byte());
  com::Message message = form % 3 == 1 ? enveloped(bytes) : enveloped_signal(bytes);
  if (form % 3 == 0) message.payload.assign(bytes.begin(), bytes.end());
  message.retained = form >= 0xC0;
  return message;
}

class Control final : public IGnssControl {
 public:
  void setGnssOn(bool on) override { gnss_on = on; }
  void setGnssAntennaOn(bool /*on*/) override {}
  void setRadioSilence(bool /*on*/) override {}
  void setHwVersion(const std::string& version) override {
    require(version.size() <= 64, "a hardware version is short");
  }
  void setGnssSystem(uint32_t bit, bool /*on*/) override {
    require(bit == 1 || bit == 2 || bit == 4 || bit == 8, "a constellation is one bit");
  }
  void restartSequence() override { ++restarts; }
  bool gnss_on = true;
  int restarts = 0;
};

/// Reads the message as one that was retained before the start.
void read_start(const com::Message& message) {
  auto bus = std::make_shared<com::MemoryTransport>();
  com::Message kept = message;
  kept.retained = true;
  bus->inject(topic::SYSTEM_PARAMETERS, kept);
  bus->inject(topic::VARIABLE_PREFIX + "hwversion", kept);
  static_cast<void>(var::create_var_client(bus)->get("hwversion"));
  BusRequests requests;
  const StartParameters start = applySystemParameters(var::create_sysparams_client(bus)->get_all(), requests);
  require(start.rate_hz >= 1 && start.rate_hz <= 4, "the rate is 1 to 4 Hz");
  require(start.period_ms >= 250 && start.period_ms <= 1000, "the period is that of the rate");
  require(requests.gnssSystemRequested() <= 0x0F, "there are four constellations");
}

void check_record_of_bus(const GnssInfo& info) {
  require(!(std::fabs(info.getLatitudeDecDeg()) > 212) && !(std::fabs(info.getLongitudeDecDeg()) > 212),
          "a position is one that the group can say");
  require(std::isnan(info.m_latitude) == std::isnan(info.m_longitude), "a position is whole or absent");
  require(info.m_utc_tm.tm_mday == 0 || isCalendarTime(info.m_utc_tm), "a date is one of the calendar");
  require(info.m_utc_fraction_us >= 0 && info.m_utc_fraction_us < 1'000'000, "a fraction is below a second");
  require(info.m_num_satellites >= -1 && info.m_num_satellites <= 250, "satellites are counted");
}

}  // namespace

/// Input: the message's type, whether to put a header before the payload, the payload.
void envelope(Bytes bytes) {
  Input input(bytes);
  const auto check = ENVELOPES[input.byte() % ENVELOPES.size()];
  const bool add_header = input.byte() % 2 == 1;
  com::Message message = enveloped(input.rest());
  if (!add_header) message.payload.erase(message.payload.begin(), message.payload.begin() + 18);
  check(message);
}

/// Input: messages, each the topic's number and the message. After the last number, a line gives any topic.
void observers(Bytes bytes) {
  const std::array TOPICS{topic::BLACKOUT_MODE,        topic::HW_VERSION,        topic::GNSS_SOURCE,
                          topic::LOG_CONFIG,           topic::PARAMETER_GNSS_ON, topic::PARAMETER_GPS,
                          topic::PARAMETER_GLONASS,    topic::PARAMETER_GALILEO, topic::PARAMETER_BEIDOU,
                          topic::PARAMETER_ANTENNA_ON, topic::TIME_ZONE,         topic::SYSTEM_PARAMETERS};
  Input input(bytes);
  Control control;
  GnssObserver system(control);
  TimeZoneObserver zone;
  while (!input.empty()) {
    const size_t number = input.byte() % (TOPICS.size() + 1);
    const std::string topic = number < TOPICS.size() ? TOPICS[number] : input.line();
    const com::Message message = next_message(input);
    const int restarts = control.restarts;
    const bool gnss_on = control.gnss_on;
    if (topic == topic::TIME_ZONE) {
      zone.message(topic, message);
    } else if (topic == topic::SYSTEM_PARAMETERS) {
      read_start(message);
    } else {
      system.message(topic, message);
    }
    require(control.restarts <= restarts + 1, "a message restarts the sequence once at most");
    require(control.gnss_on == gnss_on || message.payload.size() > com::envelope::HEADER_LENGTH + 2,
            "a message without a value switches nothing");
  }
}

struct FrameWait final : IFrameWait {
  bool waitForFrame(int64_t ns) override {
    virtual_time().sleep_ns(ns);
    return true;
  }
  void wake() override {}
};

/// Input: frames of another unit, each the group's number and the message. The last number waits for the next
/// fix and publishes it.
void can_input(Bytes bytes) {
  const std::array TOPICS{topic::VP1_RX, topic::VP2_RX, topic::VDS_RX, topic::P2C1_RX, topic::TD_RX};
  Input input(bytes);
  auto bus = std::make_shared<com::MemoryTransport>();
  std::shared_ptr<com::ITransportClient> client = bus;
  GnssPublishMqtt mqtt;
  GnssPublishSystime systime;
  std::vector<std::string> no_sentences;
  FrameWait wait;
  GnssIcanObserver observer(wait);
  while (!input.empty()) {
    const size_t number = input.byte() % (TOPICS.size() + 1);
    if (number < TOPICS.size()) {
      observer.message(TOPICS[number], next_message(input));
      check_record_of_bus(observer.getGnssInfo());
      continue;
    }
    const int64_t before = virtual_time().steady_ns();
    static_cast<void>(observer.timeoutToSendFrame());
    require(virtual_time().steady_ns() - before <= 2'000'000'000, "a wait ends");
    GnssInfo info = observer.takeGnssInfo();
    require(observer.getGnssInfo().m_utc_tm.tm_mday == 0, "a date is used once");
    mqtt.publishFrame(client, info, no_sentences);
    systime.publishFrame(client, info, no_sentences);
    check_published(*bus);
  }
}

}  // namespace fuzz
