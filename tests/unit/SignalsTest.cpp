#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "platform/com/Topics.h"
#include "platform/rt/DbcReader.h"
#include "platform/rt/Signals.h"
#include "support/Envelope.h"
#include "support/LogCapture.h"
#include "support/Support.h"

using namespace ecu::koru;
using namespace ecu::koru::rt;
using namespace testing;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double INFINITE = std::numeric_limits<double>::infinity();
using enum SignalStatus;
constexpr int64_t REFUSED = -1;

Bytes littleEndian(uint64_t value, size_t size) {
  Bytes bytes;
  for (size_t i = 0; i < size; ++i) bytes.push_back(static_cast<uint8_t>(value >> 8 * i));
  return bytes;
}

/// An adapter with one group of 12 bytes: topic "t", signal "s".
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

const std::string GOOD =
    "VERSION \"\"\n"                              // 1
    "BU_: A B\n"                                  // 2
    "BO_ 2566845438 USED: 8 A\n"                  // 3
    " SG_ a : 0|8@1+ (0.5,-3) [0|1] \"m\" B\n"    // 4
    " SG_ b : 12|16@1+ (1,0) [0|1] \"\" A,B\n"    // 5
    "BO_ 100 OTHER: 8 A\n"                        // 6
    " SG_ x : 0|8@1- (1,0) [0|1] \"\" B\n"        // 7
    "BA_DEF_ BO_ \"TxTopic\" STRING ;\n"          // 8
    "BA_ \"TxTopic\" BO_ 2566845438 \"t/tx\";\n"  // 9
    "BA_ \"RxTopic\" BO_ 2566845438 \"t/rx\";\n"  // 10
    "SIG_VALTYPE_ 2566845438 b : 0;\n";           // 11

std::string with(const std::string& from, const std::string& to) {
  std::string text = GOOD;
  return text.replace(text.find(from), from.size(), to);
}

}  // namespace

// The golden frames of PublishTest check names, places and scales of the signals.
TEST(SignalsTest, TheBuiltInDatabaseHasTheseMessages) {
  std::vector<uint32_t> ids;
  for (const GroupDefinition& group : SignalAdapter::instance().database()->groups()) {
    EXPECT_TRUE(group.extended) << group.tx_topic;
    EXPECT_EQ(group.length, 8U) << group.tx_topic;
    ids.push_back(group.can_id);
  }
  EXPECT_THAT(ids, ElementsAre(0x18FEF3FE, 0x18FBF6FE, 0x18FEE8FE, 0x18FEE6FE, 0x18FF21FE));
}

TEST(SignalsTest, EveryBitStandsInItsPlace) {
  std::mt19937_64 random(6);
  for (unsigned width = 1; width <= 64; ++width) {
    for (const unsigned start : {0U, 1U, 7U, 13U, 96 - width}) {
      SCOPED_TRACE(logging::text(start, '|', width));
      OneSignal one(start, width);
      const uint64_t value = random() >> (64 - width);
      const Bytes bytes = littleEndian(value, (width + 7) / 8);
      ASSERT_TRUE(one.group.set_signal_data("s", bytes));
      for (unsigned bit = 0; bit < 96; ++bit) {  // all other bits are still set
        const bool expected = bit < start || bit >= start + width || (value >> (bit - start) & 1) != 0;
        ASSERT_EQ((one.group.bytes()[bit / 8] >> bit % 8 & 1) != 0, expected) << bit;
      }
      ASSERT_EQ(one.group.signal("s")->raw(), value);
      ASSERT_EQ(one.group.signal("s")->data(), bytes);
    }
  }
  OneSignal twelve(6, 12);
  for (const Bytes& no : {Bytes{}, Bytes{1}, Bytes{0, 0x10}, Bytes{0xFF, 0x1F}, Bytes{0, 0, 0}})
    EXPECT_FALSE(twelve.group.set_signal_data("s", no)) << PrintToString(no);
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
        if (row.width == 64) continue;  // a double cannot tell these apart
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
    double read = NOT_A_NUMBER;  // the value that the raw one stands for
  } rows[] = {{32, "(1E-007,-210)", -90, 1'200'000'000, -90},
              {32, "(1e-7,-210)", 211.1081215, 4'211'081'215, 211.1081215},
              {32, "(1e-7,-210)", 211.1081216, REFUSED},
              {32, "(1e-7,-210)", -210.00000006, REFUSED},
              {8, "(1,0)", -0.49, 0, 0},
              {8, "(1,0)", -0.5, REFUSED},
              {8, "(1,0)", 250.49, 250, 250},
              {8, "(1,0)", 250.5, REFUSED},
              {8, "(0.1,0)", 0.15, 2, 0.2},
              {8, "(0.1,0)", 0.3, 3, 0.3},
              {8, "(-0.5,100)", 90.25, 20, 90},
              {16, "(0.0078125,-200)", 301.99, 64'255, 301.9921875},
              {8, "(0.1,0.0078125)", 0.3, 3, 0.3078125},
              {8, "(1,0.00000000001)", 7, 7, 7.00000000001},
              // Decimals cannot write these factors and offsets exactly.
              {8, "(0.30000000000000004,0)", 0.9, 3, 3 * 0.30000000000000004},
              {8, "(1,0.30000000000000004)", 3, 3, 3 + 0.30000000000000004},
              {64, "(1,0)", 0x1p62, INT64_MAX / 2 + 1, 0x1p62},
              {64, "(1,0)", 0x1p64, REFUSED},
              {32, "(1e-7,-210)", 1e305, REFUSED},
              {8, "(1,0)", INFINITE, REFUSED},
              {8, "(1,0)", NOT_A_NUMBER, REFUSED}};
  for (const auto& row : rows) {
    SCOPED_TRACE(logging::text(row.width, row.scale, row.value));
    OneSignal one(5, row.width, row.scale);
    EXPECT_TRUE(one.group.set_signal_data("s", Bytes((row.width + 7) / 8, 0)));
    EXPECT_EQ(one.group.set_signal_scaled_value("s", row.value), row.raw != REFUSED);
    const auto signal = one.group.signal("s");
    EXPECT_EQ(signal->raw(),
              row.raw != REFUSED ? static_cast<uint64_t>(row.raw) : signal->definition().max_raw());
    if (row.raw == REFUSED) continue;
    EXPECT_EQ(signal->value_scaled(), row.read);
  }
}

TEST(SignalsTest, SystemTopicsHaveOneSignal) {
  const SignalAdapter& adapter = SignalAdapter::instance();
  SignalGroup stamp = adapter.create_sg(topic::GNSS_TIMESTAMP);
  EXPECT_TRUE(stamp.set_signal_data("timestamp_ns", littleEndian(0xFFFFFFFFFFFFFFFE, 8)));
  EXPECT_EQ(stamp.signal("timestamp_ns")->status(), VALID);
  EXPECT_EQ(stamp.bytes()[0], 0xFE);
  EXPECT_FALSE(stamp.set_signal_data("timestamp_ns", {1}));
  EXPECT_FALSE(adapter.unpack(stamp.topic(), test::envelopedSignal("\1")).success);

  SignalGroup raw = adapter.create_sg(topic::HW_VERSION);
  const Bytes longest(64, 'z');
  EXPECT_TRUE(raw.set_signal_data("hw_version", longest));
  const auto result = adapter.unpack(raw.topic(), *adapter.pack(raw));
  ASSERT_TRUE(result.success) << result.error;
  EXPECT_EQ(result.group.signal("hw_version")->data(), longest);
  for (const size_t size : {0, 65}) EXPECT_FALSE(raw.set_signal_data("hw_version", Bytes(size))) << size;
  for (const auto* no : {"rt/system/", "rt/system/a/b", "systime/td", ""}) {
    EXPECT_FALSE(adapter.create_sg(no).is_valid()) << no;
    EXPECT_FALSE(adapter.unpack(no, test::envelopedSignal("\1")).success) << no;
  }
}

TEST(SignalsTest, AFileReplacesTheBuiltInDatabase) {
  const test::TempDir folder;
  const auto of_size = [](size_t size) {
    const std::string text =
        "BO_ 1 STAMP: 2 A\nSG_ s : 0|16@1+ (2,0) [0|0] \"\" A\n"
        "BA_ \"TxTopic\" BO_ 1 \"rt/system/gnss_timestamp_ns\";";
    return text + std::string(size - text.size(), '\n');
  };
  const std::string good = folder.write("good.dbc", of_size(1'048'576));
  SignalAdapter adapter;
  SignalGroup old = adapter.create_sg(topic::VP1_TX);
  {
    test::LogCapture log;
    EXPECT_TRUE(adapter.load_database(good));
    EXPECT_THAT(log.take(), HasSubstr(" does not hold rt/j1939can/tx/vp1_local rt/j1939can/rx/vp1_fb "));
  }
  const SignalGroup stamp = adapter.create_sg(topic::GNSS_TIMESTAMP);
  EXPECT_TRUE(stamp.signal("s"));
  EXPECT_FALSE(adapter.create_sg(topic::VP1_TX).is_valid());
  EXPECT_TRUE(old.set_signal_scaled_value("latitude", 1)) << "it keeps its definition";
  EXPECT_TRUE(adapter.pack(old));

  const std::pair<std::string, std::string> bad[] = {
      {folder.write("bad\n.dbc", "BO_ 1 M: 8 A\nSG_ s : x"),
       "bad\\x0A.dbc line 2: expected the start bit, found 'x'; the built-in one is used\n"},
      {folder.write("long.dbc", of_size(1'048'577)), ": the file is longer than 1 MiB; the"},
      {folder.path(), ": this is not a regular file; the"}};
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

TEST(DbcReaderTest, WhatCannotBeUsedIsNamedWithItsLine) {
  const struct {
    std::string text;
    unsigned line;
    std::string reason;
  } rows[] = {
      {with("0|8@1+", "0|8@0+"), 4, "signal a of message USED: big-endian signals (@0) are not supported"},
      {with("0|8@1+", "0|8@1-"), 4, "signal a of message USED: signed signals are not supported"},
      {with("a : ", "a M : "), 4, "signal a of message USED: multiplexed signals are not supported"},
      {with("b : 0;", "b : 1;"), 11, "signal b of message USED: floating-point signals are not supported"},
      {with("0|8@", "0|0@"), 4, "signal a of message USED: the width is not 1 to 64 bits"},
      {with("12|16@", "4294967295|16@"), 5, "signal b of message USED: it lies outside the message"},
      {with("12|16@", "7|16@"), 5, "signal b of message USED: it overlaps another signal"},
      {with("SG_ b", "SG_ a"), 5, "signal a of message USED: the name is given twice"},
      {with("(0.5,", "(0,"), 4, "signal a of message USED: the factor is 0"},
      {with(",-3)", ",1e999)"), 4, "expected the offset, found '1e999)'"},
      {with("0|8@", "-1|8@"), 4, "expected the start bit, found '-1|8@1+'"},
      {with(" [0|1] \"m\" B", ""), 4, "expected '[', found the end of the line"},
      {with("USED: 8", std::string("USED\0: 8", 8)), 3, "found '\\x00:'"},
      {with("USED: 8", "USED: 65"), 3, "message USED is longer than 64 bytes"},
      {with("BO_ 100", "BO_ 2566845438"), 6, "message id 2566845438 is given twice"},
      {with("t/rx", "t/tx"), 10, "topic t/tx is given twice"},
      {with("\"RxTopic\" BO_", "\"TxTopic\" BO_"), 10, "the topic is given twice"},
      {with("STRING ;", "STRING ;BA_DEF_DEF_ \"TxTopic\" \"o\";BA_DEF_DEF_ \"TxTopic\" \"\";"), 8,
       "the topic is given twice"},
      {with("t/rx", "t/\x1F"), 10, "this is no topic to publish on"},
      {with("RxTopic\" BO_ 2566845438", "RxTopic\" BO_ 1"), 10, "there is no message with id 1"},
      {with("b : 0;\n", "b : 0"), 11, "expected ';', found the end of the file"},
      {with("\"t/rx\";\n", "\"t/rx\n"), 10, "the string that begins here does not end"},
      {with("BU_: A B\n", "CM_ \"A\n\nB\";\nSG_ a\n"), 5, "a signal without a message before it"},
      {with("BA_DEF_", "CM_ \"A\n\nB\"\n\nBA_DEF_"), 10, "expected ';', found the end of the line"},
      {with("STRING ;", "STRING ;BA_DEF_DEF_ \"RxTopic\" \"o\";"), 7, "signal x of message OTHER: signed"},
      {with(" SG_ x : 0|8@1- (1,0) [0|1] \"\" B\n", "\n") + "BA_ \"TxTopic\" BO_ 100 \"o\";", 6,
       "message OTHER has a topic and no signal"},
      {GOOD.substr(0, GOOD.find("BA_ ")), 9, "no message has a TxTopic or RxTopic"}};
  for (const auto& row : rows) {
    const DbcResult result = parse_dbc(row.text, "f.dbc");
    EXPECT_EQ(result.database, nullptr) << row.reason;
    EXPECT_EQ(result.error.line, row.line) << row.reason << "; " << result.error.text();
    EXPECT_THAT(result.error.reason, HasSubstr(row.reason));
  }
}

TEST(DbcReaderTest, WhatIsNotNeededIsPassedOver) {
  const std::string text =
      "\xEF\xBB\xBFVERSION \"1 \\\" ;\"\r\n\r\n// BO_ 1 A: 8 B\r\n"
      "NS_ :\r\n\tCM_\r\n\tBA_DEF_\r\n\tFILTER\r\nBS_: 500 : 1, 2\r\nBU_: A B\r\nVAL_TABLE_ T 1 \"a;\" 0 "
      "\"b\" ;\r\n"
      "BO_ 2566845438 USED:8 Vector__XXX SG_ a:0|8@1+(+5E-001,-.3E1)[-0|1e3]\"\xB0;//\"\r\n"
      " SG_ _azAZ09 : 8 | 8 @ 1 + ( 1 , 0 ) [ 0 | 0 ] \"\" A , B // the end\r\n"
      "BO_ 3221225472 VECTOR__INDEPENDENT_SIG_MSG: 0 Vector__XXX\r\n SG_ c m1M : 0|99@0- (0,0) [0|0] \"\" "
      "A\r\n"
      "BO_ 2000 TOO_LONG: 1785 A\r\nSG_ c M : 7|8@0- (1,0) [0|0] \"\" A\r\nSG_ c m0 : 7|8@0- (1,0) [0|0] "
      "\"\" A\r\n"
      "BO_TX_BU_ 2000 : A,B;\r\nEV_ e : 0 [0|1] \"\" 0 1 DUMMY_NODE_VECTOR0 A;\r\n"
      "CM_ SG_ 2566845438 a \"two\r\nlines; \\\"quoted\\\" \";\r\nCM_ BU_ A \"\";\r\n"
      "BA_DEF_ SG_ \"S\" ENUM \"BA_\",\"x\";BA_DEF_REL_ BU_SG_REL_ \"R\" INT 0 1;\r\n"
      "BA_DEF_DEF_ \"S\" \"x\";\r\nBA_DEF_DEF_ \"RxTopic\" \"\";\r\nBA_DEF_DEF_ \"TxTopic\" \"\";\r\n"
      "BA_DEF_DEF_ \"RxTopic\" \"\";\r\n"  // a repeated default
      "BA_ \"S\" SG_ 2566845438 a 1;\r\nBA_ \"N\" 5;\r\nBA_ \"RxTopic\" BO_ 2566845438 \"t/\\\"r\\x\";\r\n"
      "VAL_ 2566845438 a 1 \"on\" 0 \"off\" ;\r\nSIG_GROUP_ 2566845438 G 1 : a b;\r\n"
      "SIG_VALTYPE_ 2000 c : 1;\r\nSG_MUL_VAL_ 2000 c M 0-0;";
  const DbcResult result = parse_dbc(text, "f.dbc");
  ASSERT_NE(result.database, nullptr) << result.error.text();
  ASSERT_EQ(result.database->groups().size(), 1U);
  const GroupDefinition* group = result.database->find("t/\"r\\x");
  ASSERT_NE(group, nullptr);
  EXPECT_EQ(group->tx_topic, "");
  EXPECT_EQ(group->signals.size(), 2U);
  const SignalDefinition& a = *group->signal("a");
  EXPECT_EQ(a.scale.factor(), 0.5);
  EXPECT_EQ(a.scale.offset(), -3);
  EXPECT_EQ(a.unit, "\xB0;//");
  EXPECT_EQ(a.width, 8U);
  EXPECT_EQ(parse_dbc(GOOD, "").error.text(), ": ");
}
