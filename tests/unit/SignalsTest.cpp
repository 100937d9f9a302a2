#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <random>

#include "platform/DbcReader.h"
#include "platform/PbInternalMessageAdapter.h"
#include "platform/Signals.h"
#include "platform/Topics.h"
#include "proto/nvxproto.pb.h"
#include "support/LogCapture.h"
#include "support/Support.h"

using namespace ecu::koru;
using namespace ecu::koru::rt;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr auto VALID = SignalStatus::VALID;
constexpr auto NOT_AVAILABLE = SignalStatus::NOT_AVAILABLE;
constexpr auto ERROR = SignalStatus::ERROR;
constexpr auto OUT_OF_RANGE = SignalStatus::OUT_OF_RANGE;
constexpr int64_t REFUSED = -1;

com::Message enveloped(const Bytes& value) {
  pb::RtSignal body;
  body.set_value(value.data(), value.size());
  return com::PbInternalMessageAdapter<pb::RtSignal>(1).serialize(body).message;
}

Bytes littleEndian(uint64_t value, size_t size) {
  Bytes bytes;
  for (size_t i = 0; i < size; ++i) bytes.push_back(static_cast<uint8_t>(value >> 8 * i));
  return bytes;
}

/// An adapter whose one group, on the topic "t", has 12 bytes and the signal "s".
struct OneSignal {
  SignalAdapter adapter;
  SignalGroup group;

  OneSignal(unsigned start, unsigned width, const std::string& scale = "(1,0)")
      : adapter(parse_dbc(logging::text("BO_ 1 M: 12 A\nSG_ s : ", start, '|', width, "@1+ ", scale,
                                        " [0|0] \"\" A\nBA_ \"RxTopic\" BO_ 1 \"t\";"),
                          "")
                    .database),
        group(adapter.create_sg("t")) {}
};

}  // namespace

TEST(SignalsTest, TheBuiltInDatabaseIsTheContract) {
  std::string text;
  for (const GroupDefinition& group : SignalAdapter::instance().database()->groups()) {
    EXPECT_TRUE(group.extended && group.length == 8 && group.can_id >> 26 == 6 &&
                (group.can_id & 0xFF) == 0xFE);
    text += logging::text(group.can_id >> 8 & 0x3FFFF, ' ', group.tx_topic, ' ', group.rx_topic, '\n');
    for (const SignalDefinition& signal : group.signals) {
      text += logging::text(' ', signal.name, ' ', signal.start_bit / 8.0, ' ', signal.width, ' ',
                            signal.scale.factor(), ' ', signal.scale.offset(), ' ', signal.unit, '\n');
    }
  }
  EXPECT_EQ(text, R"(65267 rt/j1939can/tx/vp1_local rt/j1939can/rx/vp1_fb
 latitude 0 32 1e-07 -210 deg
 longitude 4 32 1e-07 -210 deg
64502 rt/j1939can/tx/vp2_local rt/j1939can/rx/vp2_fb
 totalnumberofsatellitesinview 0 8 1 0 
 horizontaldilutionofprecision 1 8 0.1 0 
 verticaldilutionofprecision 2 8 0.1 0 
 positiondilutionofprecision 3 8 0.1 0 
 timedilutionofprecision 4 8 0.1 0 
65256 rt/j1939can/tx/vds_local rt/j1939can/rx/vds_fb
 compassbearing 0 16 0.0078125 0 deg
 navigationbasedvehiclespeed 2 16 0.00390625 0 km/h
 pitch 4 16 0.0078125 -200 deg
 altitude 6 16 0.125 -2500 m
65254 rt/j1939can/tx/td_local rt/j1939can/rx/td_fb
 seconds 0 8 0.25 0 s
 minutes 1 8 1 0 min
 hours 2 8 1 0 h
 month 3 8 1 0 month
 day 4 8 0.25 0 d
 year 5 8 1 1985 a
 localminuteoffset 6 8 1 -125 min
 localhouroffset 7 8 1 -125 h
65313 rt/oemcan/tx/p2c1_local rt/oemcan/rx/p2c1_fb
 navmodegnss_base 0 8 1 0 
 qualityindicatorgnss_base 1 8 1 0 
 summertimegps_base 2 8 1 0 
 vehposwgs84altitudegnss_base 3 16 0.125 -2500 m
 vehposprecisiongnss_base 5 8 0.5 0 m
 gnsspositionage_base 6 8 1 0 
 timesynchdelaygnss_base 7 8 1 0 
)");
}

TEST(SignalsTest, GroupsAreTheseOnTheWire) {
  constexpr double NONE = NOT_A_NUMBER;
  const struct {
    const std::string& topic;
    std::vector<double> values;  // in the database's order
    Bytes bytes;
  } rows[] = {// 15802, 12877, not available, 23842
              {topic::VDS_TX, {123.45, 50.3, NONE, 480.3}, {0xBA, 0x3D, 0x4D, 0x32, 0xFF, 0xFF, 0x22, 0x5D}},
              // 2677089123, 2219746000
              {topic::VP1_RX, {57.7089123, 11.9746}, {0x63, 0x23, 0x91, 0x9F, 0xD0, 0xA2, 0x4E, 0x84}},
              {topic::TD_TX, {59, 59, 23, 12, 31, 2025, 0, 1}, {236, 59, 23, 12, 124, 40, 125, 126}},
              {topic::VP2_TX, {9, 1.2, 99.9, 1.5, NONE}, {9, 12, 255, 15, 255, 255, 255, 255}},
              // the altitude is 19904
              {topic::P2C1_TX, {2, 1, 0, -12, 2.4, NONE, NONE}, {2, 1, 0, 0xC0, 0x4D, 5, 255, 255}}};
  const SignalAdapter& adapter = SignalAdapter::instance();
  for (const auto& row : rows) {
    SignalGroup group = adapter.create_sg(row.topic);
    EXPECT_THAT(group.bytes(), ElementsAreArray(Bytes(8, 0xFF)));
    for (size_t i = 0; i < row.values.size(); ++i)
      (void)group.set_signal_scaled_value(group.signals()[i].name(), row.values[i]);
    const auto message = adapter.pack(group);
    ASSERT_TRUE(message && message->payload.size() == 28) << row.topic;
    EXPECT_THAT(std::span(message->payload).subspan(20), ElementsAreArray(row.bytes)) << row.topic;
    Bytes longer = row.bytes;
    longer.push_back(0);
    const auto result = adapter.unpack(row.topic, enveloped(longer));
    ASSERT_TRUE(result.success) << result.error;
    EXPECT_THAT(result.group.bytes(), ElementsAreArray(row.bytes));
    EXPECT_EQ(result.group.topic(), row.topic);
    for (size_t i = 0; i < row.values.size(); ++i) {
      const Signal signal = result.group.signals()[i];
      const bool available = row.values[i] < 90 || row.values[i] > 100;
      EXPECT_EQ(signal.status(), available ? VALID : NOT_AVAILABLE) << signal.name();
      EXPECT_EQ(std::isnan(signal.value_scaled()), !available);
      const double error = std::abs(signal.value_scaled() - row.values[i]);
      EXPECT_FALSE(available && error > signal.definition().scale.factor() / 2) << signal.name();
    }
  }
}

TEST(SignalsTest, EveryBitStandsInItsPlace) {
  std::mt19937_64 random(6);
  for (unsigned width = 1; width <= 64; ++width) {
    for (const unsigned start : {0U, 1U, 7U, 13U, 96 - width}) {
      OneSignal one(start, width);
      const uint64_t value = random() >> (64 - width);
      ASSERT_TRUE(one.group.set_signal_data("s", littleEndian(value, (width + 7) / 8)))
          << start << '|' << width;
      for (unsigned bit = 0; bit < 96; ++bit) {  // all others are still set
        const bool expected = bit < start || bit >= start + width || (value >> (bit - start) & 1) != 0;
        ASSERT_EQ((one.group.bytes()[bit / 8] >> bit % 8 & 1) != 0, expected)
            << start << '|' << width << " bit " << bit;
      }
      ASSERT_TRUE(one.group.signal("s")->raw() == value &&
                  one.group.signal("s")->data() == littleEndian(value, (width + 7) / 8));
    }
  }
  OneSignal twelve(6, 12);
  EXPECT_TRUE(twelve.group.set_signal_scaled_value("s", 0xA35));  // 1010 00110101 at bit 6 of byte 0
  EXPECT_THAT(twelve.group.bytes().first(4), ElementsAre(0x7F, 0x8D, 0xFE, 0xFF));
  for (const Bytes& no : {Bytes{}, Bytes{1}, Bytes{0, 0x10}, Bytes{0xFF, 0x1F}, Bytes{0, 0, 0}})
    EXPECT_FALSE(twelve.group.set_signal_data("s", no)) << testing::PrintToString(no);
  EXPECT_FALSE(twelve.group.set_signal_data("other", {0, 0}) || twelve.group.signal("other") ||
               twelve.group.set_signal_scaled_value("other", 1));
  EXPECT_EQ(twelve.group.signal("s")->raw(), 0xA35U);
  EXPECT_TRUE(twelve.group.set_signal_data("s", {0xFF, 0xFF}));
  EXPECT_THAT(twelve.group.bytes(), testing::Each(0xFF));
}

TEST(SignalsTest, RawValuesSayWhetherTheyAreValues) {
  const struct {
    unsigned width;
    uint64_t last_valid, first_error, first_not_available;
  } rows[] = {{1, 1, 2, 2},
              {2, 1, 2, 3},
              {7, 125, 126, 127},
              {8, 250, 254, 255},
              {12, 0xFAF, 0xFE0, 0xFF0},
              {16, 64255, 65024, 65280},
              {32, 4211081215, 0xFE000000, 0xFF000000},
              {64, 0xFAFFFFFFFFFFFFFF, 0xFE00000000000000, 0xFF00000000000000}};
  for (const auto& row : rows) {
    OneSignal one(3, row.width);
    const auto signal = one.group.signal("s");
    for (const uint64_t edge :
         {uint64_t{1}, row.last_valid + 1, row.first_error, row.first_not_available, uint64_t{0}}) {
      for (const uint64_t raw : {edge - 1, edge}) {
        if (raw > signal->definition().max_raw() || (raw == ~uint64_t{0} && row.width < 64)) continue;
        EXPECT_TRUE(one.group.set_signal_data("s", littleEndian(raw, (row.width + 7) / 8)));
        const SignalStatus expected = raw <= row.last_valid            ? VALID
                                      : raw >= row.first_not_available ? NOT_AVAILABLE
                                      : raw >= row.first_error         ? ERROR
                                                                       : OUT_OF_RANGE;
        EXPECT_EQ(signal->status(), expected) << row.width << ' ' << raw;
        EXPECT_EQ(std::isnan(signal->value_scaled()), expected != VALID) << row.width << ' ' << raw;
        if (row.width == 64) continue;  // more than a double tells apart
        EXPECT_EQ(one.group.set_signal_scaled_value("s", static_cast<double>(raw)), expected == VALID);
        EXPECT_EQ(signal->raw(), expected == VALID ? raw : signal->definition().max_raw());
      }
    }
  }
}

TEST(SignalsTest, ValuesAreRoundedToTheNearestRawValue) {
  const struct {
    unsigned width;
    const char* scale;
    double value;
    int64_t raw;
  } rows[] = {{32, "(1E-007,-210)", -90, 1'200'000'000},
              {32, "(0.0000001,-210)", 90, 3'000'000'000},
              {32, "(1e-7,-210)", -180, 300'000'000},
              {32, "(1e-7,-210)", 180, 3'900'000'000},
              {32, "(1e-7,-210)", -0.0, 2'100'000'000},
              {32, "(1e-7,-210)", 211.1081215, 4'211'081'215},
              {32, "(1e-7,-210)", 211.1081216, REFUSED},
              {32, "(1e-7,-210)", -210.00000006, REFUSED},
              {8, "(1,0)", -0.0, 0},
              {8, "(1,0)", -0.49, 0},
              {8, "(1,0)", -0.5, REFUSED},
              {8, "(1,0)", 250.49, 250},
              {8, "(1,0)", 250.5, REFUSED},
              {8, "(1,0)", 2.5, 3},
              {8, "(0.1,0)", 0.15, 2},
              {8, "(0.1,0)", 99.9, REFUSED},
              {8, "(-0.5,100)", 90.25, 20},
              {8, "(0.3333333333333333333,0)", 1, 3},
              {1, "(1,0)", 1.5, REFUSED},
              {64, "(1,0)", 0x1p62, INT64_MAX / 2 + 1},
              {64, "(1,0)", 0x1p64, REFUSED},
              {8, "(1,0)", 1e300, REFUSED},
              {32, "(1e-7,-210)", 1e305, REFUSED},
              {8, "(1,0)", INFINITE, REFUSED},
              {8, "(1,0)", -INFINITE, REFUSED},
              {8, "(1,0)", NOT_A_NUMBER, REFUSED}};
  for (const auto& row : rows) {
    OneSignal one(5, row.width, row.scale);
    EXPECT_TRUE(one.group.set_signal_data("s", Bytes((row.width + 7) / 8, 0)));
    EXPECT_EQ(one.group.set_signal_scaled_value("s", row.value), row.raw != REFUSED)
        << row.scale << row.value;
    const auto signal = one.group.signal("s");
    EXPECT_EQ(signal->raw(),
              row.raw != REFUSED ? static_cast<uint64_t>(row.raw) : signal->definition().max_raw())
        << row.scale << row.value;
  }
}

TEST(SignalsTest, DecimalNumbersComeBackAsTheyWere) {
  const struct {
    const char* scale;
    int64_t first, last, step, divisor;
  } rows[] = {{"(1e-7,-210)", -2'100'000'000, 2'111'081'215, 999'983, 10'000'000},
              {"(0.1,0)", 0, 250, 1, 10},
              {"(0.0078125,-200)", -25600, 38655, 7, 128}};
  for (const auto& row : rows) {
    OneSignal one(0, 32, row.scale);
    for (int64_t i = row.first; i <= row.last; i += row.step) {
      const double value = static_cast<double>(i) / static_cast<double>(row.divisor);
      ASSERT_TRUE(one.group.set_signal_scaled_value("s", value)) << value;
      ASSERT_EQ(one.group.signal("s")->value_scaled(), value);
    }
  }
}

TEST(SignalsTest, SystemTopicsHaveOneSignal) {
  const SignalAdapter& adapter = SignalAdapter::instance();
  SignalGroup stamp = adapter.create_sg(topic::GNSS_TIMESTAMP);
  EXPECT_TRUE(stamp.set_signal_data("timestamp_ns", littleEndian(0xFFFFFFFFFFFFFFFE, 8)));
  EXPECT_TRUE(stamp.signal("timestamp_ns")->status() == VALID && stamp.bytes()[0] == 0xFE);
  EXPECT_FALSE(stamp.set_signal_data("timestamp_ns", {1}) ||
               adapter.unpack(stamp.topic(), enveloped({1})).success);

  SignalGroup raw = adapter.create_sg(topic::HW_VERSION);
  for (const size_t size : {1, 9, 64}) {
    const Bytes data(size, 'z');
    EXPECT_TRUE(raw.set_signal_data("hw_version", data));
    const auto result = adapter.unpack(raw.topic(), *adapter.pack(raw));
    ASSERT_TRUE(result.success) << result.error;
    EXPECT_EQ(result.group.signal("hw_version")->data(), data);
    EXPECT_EQ(result.group.signal("hw_version")->status(), VALID);
  }
  EXPECT_FALSE(raw.set_signal_data("hw_version", Bytes(65)) || raw.set_signal_data("hw_version", Bytes()) ||
               raw.set_signal_scaled_value("hw_version", 1));
  for (const auto* no : {"rt/system/", "rt/system/a/b", "system/x", "systime/td", ""}) {
    EXPECT_FALSE(adapter.create_sg(no).is_valid() || adapter.unpack(no, enveloped({1})).success) << no;
  }
  SignalGroup none;
  EXPECT_TRUE(!adapter.pack(none) && none.signals().empty() && none.bytes().empty());
  EXPECT_FALSE(none.signal("x") || none.set_signal_data("x", {1}) || none.set_signal_scaled_value("x", 1));
}

TEST(SignalsTest, WhatIsNoGroupIsNotUnpacked) {
  const SignalAdapter& adapter = SignalAdapter::instance();
  test::LogCapture quiet("EMERG");
  const struct {
    const std::string& topic;
    com::Message message;
    const char* error;
  } rows[] = {{topic::VP1_RX, enveloped(Bytes(7)), "the payload has 7 bytes, the group 8"},
              {topic::VP1_RX, enveloped({}), "the payload has 0 bytes, the group 8"},
              {topic::VP1_RX, com::Message(), "the envelope cannot be decoded"},
              {topic::BLACKOUT_MODE, enveloped({}), "the payload has 0 bytes, the group 1"},
              {topic::BLACKOUT_MODE, enveloped(Bytes(65)), "the payload is too long"},
              {topic::GNSS_DATA, enveloped({1}), "the topic has no signal group"}};
  for (const auto& row : rows) {
    const auto result = adapter.unpack(row.topic, row.message);
    EXPECT_TRUE(!result.success && !result.group.is_valid()) << row.error;
    EXPECT_EQ(result.error, row.error);
  }
}

TEST(SignalsTest, AFileReplacesTheBuiltInDatabase) {
  const test::TempDir folder;
  const std::string good = folder.write("good.dbc",
                                        "BO_ 1 STAMP: 2 A\nSG_ s : 0|16@1+ (2,0) [0|0] \"\" A\n"
                                        "BA_ \"TxTopic\" BO_ 1 \"rt/system/gnss_timestamp_ns\";");
  SignalAdapter adapter;
  SignalGroup old = adapter.create_sg(topic::VP1_TX);
  {
    test::LogCapture log;
    EXPECT_TRUE(adapter.load_database(good));
    EXPECT_THAT(log.take(), HasSubstr(" does not hold rt/j1939can/tx/vp1_local rt/j1939can/rx/vp1_fb "));
  }
  const SignalGroup stamp = adapter.create_sg(topic::GNSS_TIMESTAMP);
  EXPECT_TRUE(stamp.signal("s") && !adapter.create_sg(topic::VP1_TX).is_valid());
  EXPECT_TRUE(old.set_signal_scaled_value("latitude", 1) && adapter.pack(old));  // it keeps its definition

  const std::pair<std::string, std::string> bad[] = {
      {folder.write("bad\n.dbc", "BO_ 1 M: 8 A\nSG_ s : x"),
       "bad\\x0A.dbc line 2: expected the start bit, found 'x'; the built-in one is used\n"},
      {folder.path(), ": this is not a regular file; the"},
      {folder / "none", "/none: No such file or directory; the"},
      {folder.write("large", std::string(MAX_DBC_SIZE + 1, '\n')),
       "/large: the file is longer than 1 MiB; the"}};
  for (const auto& [path, record] : bad) {
    test::LogCapture log;
    EXPECT_FALSE(adapter.load_database(path));
    const std::string text = log.take();
    EXPECT_THAT(text, HasSubstr("ERROR koru.rt: signal database " + folder.path().string()));
    EXPECT_THAT(text, HasSubstr(record));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    EXPECT_TRUE(adapter.create_sg(topic::VP1_TX).is_valid());
  }
}
