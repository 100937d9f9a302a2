#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/PbInternalMessageAdapter.h"
#include "tools/tap/Fields.h"
#include "tools/tap/Lines.h"

using namespace ecu::koru;
using testing::HasSubstr;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes enveloped(const google::protobuf::MessageLite& body) {
  com::Message message;
  EXPECT_TRUE(com::envelope::wrap(1, body, message));
  return message.payload;
}

Bytes enveloped_value(std::string_view value) {
  pb::RtSignal body;
  body.set_value(value.data(), value.size());
  return enveloped(body);
}

tap::Arrival arrival(std::string_view topic, std::span<const uint8_t> payload) {
  return {.topic = topic, .payload = payload, .wall_us = 1'795'256'130'123'456, .boot_ns = 5'000'000'007};
}

}  // namespace

TEST(TapTest, ShowsSignalGroupsWithPhysicalValues) {
  const struct {
    std::string_view topic;
    Bytes value;
    std::string shown;
  } rows[] = {
      {"rt/j1939can/tx/vp1_local",
       {0x94, 0x9A, 0xDC, 0x99, 0xD0, 0x14, 0x45, 0x76},
       "VP1  latitude 48.137154 deg  longitude -11.57612 deg  raw 949adc99d0144576"},
      {"rt/j1939can/rx/vp1_fb",
       {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0xFE, 0x77},  // and a byte that the group does not have
       "VP1  latitude not available  longitude error  raw ffffffff000000fe"},
      {"rt/j1939can/tx/vds_local",
       {0xC1, 0x87, 0x0A, 0x24, 0, 0xFB, 0xB5, 0x6B},
       "VDS  compassbearing 271.508 deg  navigationbasedvehiclespeed 36.039 km/h  pitch out of range  "
       "altitude 946.625 m  raw c1870a2400fbb56b"},
      {"systime/td",
       {0x79, 0x0F, 0x0A, 0x0B, 0x54, 0x29, 0x7D, 0x7B},
       "TD  seconds 30.25 s  minutes 15 min  hours 10 h  month 11 month  day 21 d  year 2026 a  "
       "localminuteoffset 0 min  localhouroffset -2 h  raw 790f0a0b54297d7b"},
      {"rt/system/hw_version", {'v', '1'}, "hw_version 7631 \"v1\""},
      {"rt/oemcan/tx/p2c1_local", {1, 2, 3}, "UNDECODABLE: the payload has 3 bytes, the group 8"},
  };
  for (const auto& row : rows) {
    const std::string_view value(reinterpret_cast<const char*>(row.value.data()), row.value.size());
    EXPECT_THAT(tap::human_line(arrival(row.topic, enveloped_value(value)), false),
                HasSubstr("] " + row.shown + "\n"));
  }
}

// Nothing that came from outside may reach the terminal as a control character, or pass for a line of its
// own.
TEST(TapTest, CannotBeMadeToForgeALine) {
  const struct {
    std::string_view topic;
    Bytes payload;
    std::string_view shown;
  } rows[] = {{"system/var/a", enveloped_value("\x1B[2J\nfalse"), "value=\\x1B[2J\\x0Afalse\n"},
              {"rt/\x1B\n", enveloped_value("\n"), "rt/\\x1B\\x0A ["},
              {"rt/x", enveloped_value(std::string(1000, 'A')), "4141...\n"},
              {"rt/system/\x1B", enveloped_value("AB"), "\\x1B 4142 \"AB\"\n"},
              {"rt/x", enveloped(pb::RtSignal()), "(no fields)\n"}};
  for (const auto& row : rows) {
    const std::string line = tap::human_line(arrival(row.topic, row.payload), true);
    EXPECT_THAT(line, HasSubstr(row.shown));
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(line.find('\x1B'), std::string::npos);
  }
}
