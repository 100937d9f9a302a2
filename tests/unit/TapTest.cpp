#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "platform/Logging.h"
#include "platform/PbInternalMessageAdapter.h"
#include "tools/tap/CanFrame.h"
#include "tools/tap/Fields.h"
#include "tools/tap/Lines.h"

using namespace ecu::koru;
using tap::Json;
using testing::HasSubstr;
using testing::StartsWith;

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

Json json_of(std::string_view topic, std::span<const uint8_t> payload) {
  return Json::parse(tap::json_line(arrival(topic, payload)));
}

pb::GnssData full_fix() {
  pb::GnssData fix;
  fix.set_longitude(-11.57612F);
  fix.set_latitude(48.137154F);
  fix.set_speed(36.04F);
  fix.set_heading(271.5F);
  fix.set_num_satellites(9);
  fix.set_quality(-1);
  fix.add_nmea("$GPRMC,1*00\r\n");
  fix.add_nmea("$GP\xFF\x80\"*00\r\n");
  fix.set_status(3);
  fix.set_fix(3);
  fix.set_altitude(519.25F);
  fix.set_utc_time_us(1'795'256'130'000'000);
  fix.set_timestamp_ns(std::numeric_limits<uint64_t>::max());
  fix.set_accuracy(1.8F);
  fix.set_hdop(0.9F);
  fix.set_vdop(1.3F);
  return fix;
}

}  // namespace

// The viewer gives its own reasons; what it accepts must be what the service accepts.
TEST(TapTest, RefusesWhatTheServiceRefuses) {
  pb::GnssSource source;
  source.set_source(pb::GnssSource::CAN);
  const Bytes good = enveloped(source);
  const auto changed = [&good](size_t offset, uint8_t value) {
    Bytes bytes = good;
    bytes[offset] = value;
    return bytes;
  };
  const struct {
    Bytes payload;
    std::string problem;
  } rows[] = {{good, ""},
              {{}, "empty payload"},
              {Bytes(good.begin(), good.begin() + 17), "17 bytes are too short for the header of 18"},
              {changed(0, 0xFF), "the header cannot be decoded"},
              {changed(1, 0), "protocol type 0"},
              {changed(3, 17), "header length 17 instead of 18"},
              {changed(5, 3), "body length 3, but only 2 bytes follow the header"},
              {changed(18, 0x0A), "the body is no GnssSource"}};
  logging::configure_logging("EMERG");
  for (const auto& row : rows) {
    const auto decoded = tap::decode("system/gnss/source", row.payload);
    EXPECT_EQ(decoded.problem, row.problem);
    EXPECT_EQ(std::holds_alternative<std::monostate>(decoded.body), !row.problem.empty()) << row.problem;
    com::Message message;
    message.payload = row.payload;
    EXPECT_EQ(com::PbInternalMessageAdapter<pb::GnssSource>(1).deserialize(message).success,
              row.problem.empty());
  }
  logging::configure_logging("INFO");
}

TEST(TapTest, ShowsEveryFieldOfAFixAsJson) {
  const Bytes payload = enveloped(full_fix());
  const Json line = json_of("system/gnss/data", payload);
  EXPECT_EQ(line["time"], "2026-11-21T10:15:30.123456Z");
  EXPECT_EQ(line["arrival_ns"], 5'000'000'007);
  EXPECT_EQ(line["envelope"]["body_length"], payload.size() - 18);
  EXPECT_EQ(line["body"].dump(),
            R"({"longitude":-11.57612,"latitude":48.137154,"speed":36.04,"heading":271.5,"num_satellites":9,)"
            R"("quality":-1,"nmea":["$GPRMC,1*00\r\n","$GP\\xff\\x80\"*00\r\n"],"status":3,"fix":3,)"
            R"("altitude":519.25,"utc_time_us":1795256130000000,"timestamp_ns":18446744073709551615,)"
            R"("accuracy":1.8,"hdop":0.9,"vdop":1.3})");
}

TEST(TapTest, ShowsTheOtherBodiesAsJson) {
  pb::TimeZone zone;
  zone.set_hour_offset(-3);
  zone.set_minute_offset(-30);
  zone.set_summer_time(false);
  zone.set_source(pb::TimeZone::USER);
  EXPECT_EQ(json_of("system/time/timezone", enveloped(zone))["body"].dump(),
            R"({"hour_offset":-3,"minute_offset":-30,"summer_time":false,"source":"USER"})");

  pb::SystemParameters parameters;
  auto& entries = *parameters.mutable_entries();
  entries[0xA00F].set_flags(1);
  entries[0xA00F].set_value(std::string("\x01\x00", 2));
  entries[0x2045].set_value("");
  EXPECT_EQ(json_of("system/sysparams", enveloped(parameters))["body"].dump(),
            R"({"entries":{"0x00002045":{"value":""},"0x0000A00F":{"flags":1,"value":"0100"}}})");

  EXPECT_EQ(json_of("system/var/name", enveloped_value("Z\xC3\xBCrich"))["body"]["value"], "Z\xC3\xBCrich");
  EXPECT_EQ(json_of("system/var/name", enveloped_value("Z\xFCrich"))["body"]["value"], "Z\\xfcrich");
}

TEST(TapTest, ShowsAnUndecodableMessageWhole) {
  const Bytes payload{0x01, 0xFF, '$', '\n'};
  const Json line = json_of("system/gnss/data", payload);
  EXPECT_EQ(line["error"], "4 bytes are too short for the header of 18");
  EXPECT_EQ(line["payload"], "01ff240a");
  EXPECT_FALSE(line.contains("envelope") || line.contains("body"));
  EXPECT_EQ(
      tap::human_line(arrival("system/gnss/data", payload), false),
      "10:15:30.123Z system/gnss/data [no envelope] UNDECODABLE: 4 bytes are too short for the header of 18\n"
      "    0000  01 ff 24 0a                                      ..$.\n");

  const std::string huge = tap::human_line(arrival("rt/x", Bytes(1 << 20, 0)), false);
  EXPECT_THAT(huge, HasSubstr("    00f0  "));
  EXPECT_THAT(huge, HasSubstr("\n    1048320 more bytes\n"));
}

TEST(TapTest, LaysAFixOutForPeople) {
  const Bytes payload = enveloped(full_fix());
  auto fix = arrival("system/gnss/data", payload);
  fix.retained = true;
  const std::string line = tap::human_line(fix, false);
  EXPECT_THAT(line, StartsWith("10:15:30.123Z system/gnss/data [type 1, "));
  EXPECT_THAT(
      line, HasSubstr(" s, retained] 2026-11-21T10:15:30.000Z  48.137154 N  11.576120 W  36.0 km/h  271.5 deg"
                      "  519.2 m  status 3  fix 3  quality -1  9 satellites  accuracy 1.8 m  hdop 0.9"
                      "  vdop 1.3  epoch 18446744073.709551 s  2 sentences\n"));
  EXPECT_THAT(tap::human_line(fix, true),
              HasSubstr("2 sentences\n    $GPRMC,1*00\n    $GP\\xFF\\x80\"*00\n"));
}

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

TEST(TapTest, ShowsSignalGroupsAsJson) {
  const auto group = [](std::string_view topic, std::string_view value) {
    return json_of(topic, enveloped_value(value))["group"].dump();
  };
  EXPECT_EQ(group("rt/j1939can/tx/vp1_local", std::string("\x94\x9A\xDC\x99\0\0\0\xFE", 8)),
            R"({"name":"VP1","can_id":"18FEF3FE","signals":{)"
            R"("latitude":{"value":48.137154,"unit":"deg","status":"valid","raw":"949adc99"},)"
            R"("longitude":{"value":null,"unit":"deg","status":"error","raw":"000000fe"}}})");
  EXPECT_THAT(group("systime/td", "\x79\x0F\x0A\x0B\x54\x29\x7D\xFB"),
              testing::AllOf(HasSubstr(R"("year":{"value":2026,"unit":"a","status":"valid","raw":"29"})"),
                             HasSubstr(R"({"value":null,"unit":"h","status":"out of range","raw":"fb"})")));
}

TEST(TapTest, WritesAGroupAsAFrame) {
  const auto group = rt::SignalAdapter::instance().create_sg("rt/oemcan/rx/p2c1_fb");
  EXPECT_EQ(tap::candump_line(1'795'256'130'000'456, "vcan0", group, std::nullopt),
            "(1795256130.000456) vcan0 18FF211C#FFFFFFFFFFFFFFFF\n");
  const struct {
    uint32_t id;
    bool extended;
    std::optional<uint8_t> source_address;
    std::string_view text;
  } rows[] = {{0x18FEF3FE, true, std::nullopt, "18FEF31C"},
              {0x08FEF321, true, std::nullopt, "08FEF321"},
              {0x0FE, false, 0x1C, "0FE"},
              {0, true, std::nullopt, "00000000"}};
  for (const auto& row : rows) {
    rt::GroupDefinition definition;
    definition.can_id = row.id;
    definition.extended = row.extended;
    EXPECT_EQ(tap::can_id_text(tap::frame_id(definition, row.source_address), row.extended), row.text);
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
