#include "bench/CanFrames.h"

#include <array>
#include <functional>
#include <stdexcept>
#include <string>

#include "platform/com/Topics.h"
#include "platform/rt/Signals.h"

namespace bench {

namespace {

using namespace ecu::koru;

struct SignalRow {
  std::reference_wrapper<const std::string> topic;
  const char* signal;
  double (*value)(const std::tm& utc);
};

template <int VALUE>
double constant(const std::tm& /*utc*/) {
  return VALUE;
}

// In the order in which the groups leave; the time completes the fix.
const std::array<SignalRow, 19> ROWS{{
    {topic::VP1_RX, "latitude", constant<57>},
    {topic::VP1_RX, "longitude", constant<12>},
    {topic::P2C1_RX, "navmodegnss_base", constant<2>},  // 3D
    {topic::P2C1_RX, "qualityindicatorgnss_base", constant<1>},
    {topic::P2C1_RX, "vehposwgs84altitudegnss_base", constant<20>},
    {topic::P2C1_RX, "vehposprecisiongnss_base", constant<2>},
    {topic::VP2_RX, "totalnumberofsatellitesinview", constant<11>},
    {topic::VP2_RX, "horizontaldilutionofprecision", constant<1>},
    {topic::VP2_RX, "verticaldilutionofprecision", constant<2>},
    {topic::VP2_RX, "positiondilutionofprecision", constant<2>},
    {topic::VDS_RX, "compassbearing", constant<90>},
    {topic::VDS_RX, "navigationbasedvehiclespeed", constant<50>},
    {topic::VDS_RX, "altitude", constant<20>},
    {topic::TD_RX, "seconds", [](const std::tm& utc) { return double(utc.tm_sec); }},
    {topic::TD_RX, "minutes", [](const std::tm& utc) { return double(utc.tm_min); }},
    {topic::TD_RX, "hours", [](const std::tm& utc) { return double(utc.tm_hour); }},
    {topic::TD_RX, "day", [](const std::tm& utc) { return double(utc.tm_mday); }},
    {topic::TD_RX, "month", [](const std::tm& utc) { return double(utc.tm_mon + 1); }},
    {topic::TD_RX, "year", [](const std::tm& utc) { return double(utc.tm_year + 1900); }},
}};

}  // namespace

void sendCanFrames(com::ITransportClient& bus, std::time_t utc) {
  std::tm calendar{};
  gmtime_r(&utc, &calendar);
  const auto& adapter = rt::SignalAdapter::instance();
  for (auto row = ROWS.begin(); row != ROWS.end();) {
    const std::string& topic = row->topic;
    rt::SignalGroup group = adapter.create_sg(topic);
    bool complete = group.is_valid();
    for (; row != ROWS.end() && row->topic.get() == topic; ++row)
      complete = complete && group.set_signal_scaled_value(row->signal, row->value(calendar));
    const auto message = adapter.pack(group);
    if (!complete || !message || bus.publish(topic, *message) < 0)
      throw std::runtime_error("cannot send " + topic);
  }
}

}  // namespace bench
