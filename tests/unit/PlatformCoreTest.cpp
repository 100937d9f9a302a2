#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "platform/base/Configuration.h"
#include "platform/base/Numbers.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "proto/nvxproto.pb.h"
#include "support/LogCapture.h"
#include "support/VirtualClock.h"

using namespace ecu::koru;
using namespace std::string_literals;
using namespace testing;

namespace {

using Bytes = std::vector<uint8_t>;

// type 1, header of 18 bytes, body of 4 bytes, stamp 0x0102030405060708, an RtSignal of "AB"
const Bytes GOLDEN{0x09, 1, 0, 18, 0, 4, 0, 0, 0, 0x11, 8, 7, 6, 5, 4, 3, 2, 1, 0x0A, 2, 'A', 'B'};

Bytes changed(size_t offset, uint8_t value, size_t length = GOLDEN.size()) {
  Bytes bytes = GOLDEN;
  bytes[offset] = value;
  bytes.resize(length, 0xFF);
  return bytes;
}

}  // namespace

TEST(PlatformTest, ConfigurationReadsKeysAndNamesTheLineThatIsWrong) {
  const std::string longest = "key = 1" + std::string(1'048'576 - 7, '\n');
  std::string many;
  for (int i = 0; i < 1000; ++i) many += "x\n";
  const struct {
    std::string text, value, record;
    int records = 0;
  } rows[] = {
      {"key=1", "1", ""},
      {" \tkey \t=  a b \t\r\n", "a b", ""},
      {"key = \"  a \"", "  a ", ""},
      {"key = \"a", "\"a", ""},
      {"key = a\"", "a\"", ""},
      {"key = a=b # no comment", "a=b # no comment", ""},
      {"# key = 1\n;key=2\n\n\r\n", "38400", ""},
      {"key = 1\nkey = 2", "2", ""},
      {"key = 1\nkey =", "", ""},  // an empty value is not an absent one
      {"\nkye = 1\nkye = 2", "38400",
       "WARNING koru.config: configuration line 3: unknown key 'kye' ignored\n", 1},
      {"key=1\nkey 1\n", "1", "line 2: expected 'key = value' or a comment, found 'key 1'\n", 1},
      {"k y = 1", "38400",
       "ERROR koru.config: configuration line 1: expected a key without blanks, found 'k y'\n", 1},
      {"\x1B[" + std::string(100, 'x'), "38400", "found '\\x1B[" + std::string(78, 'x') + "...'\n", 1},
      {longest, "1", ""},
      {longest + "\n", "1", "expected at most 1 MiB of text\n", 1},
      {many, "38400", " 980 more lines like these\n", 21}};
  for (const auto& row : rows) {
    auto configuration = std::make_unique<config::Configuration>();
    configuration->set_default("key", "38400");
    std::istringstream input(row.text);
    config::set_config_from_input(configuration, input);
    test::LogCapture log;
    EXPECT_EQ(configuration->get("key") + configuration->get("absent"), row.value) << row.text.substr(0, 80);
    EXPECT_EQ(configuration->verify(), row.records == 0 || row.record.starts_with("WARNING")) << row.record;
    const std::string text = log.take();
    EXPECT_THAT(text, HasSubstr(row.record));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), row.records) << row.record;
  }
}

TEST(PlatformTest, ANumberThatIsTooLargeLeavesNothingBehind) {
  EXPECT_THROW(std::ignore = to_u32_base0("99999999999999999999"), std::out_of_range);
  EXPECT_EQ(to_u32_base0("0xFFFFFFFF"), 0xFFFFFFFF);
  EXPECT_EQ(to_u32_base0(" -1"), 0xFFFFFFFF);
}

TEST(PlatformTest, TheEnvelopeIsThisOnTheWire) {
  const test::VirtualClock clock(0x0102030405060708);
  pb::RtSignal signal;
  signal.set_value("AB");
  com::PbInternalMessageAdapter<pb::RtSignal> adapter(1);
  com::Message message = adapter.serialize(signal).message;
  EXPECT_EQ(message.payload, GOLDEN);
  EXPECT_TRUE(message.valid);
  EXPECT_FALSE(message.retained);
  EXPECT_EQ(message.timestamp_ns, 0x0102030405060708U);
  message.payload.assign(500, 0xEE);  // used memory must not show in the next message
  EXPECT_TRUE(adapter.serialize(pb::RtSignal(), message));
  EXPECT_EQ(message.payload, changed(5, 0, 18));
}

TEST(PlatformTest, TheEnvelopeRefusesWhatIsNone) {
  const std::string bad_body = "EMERG koru.com.messageadapter: Unable to deserialize protobuf\n";
  const struct {
    Bytes payload;
    int error;
    std::string record;
  } rows[] = {{GOLDEN, 0, ""},
              {changed(2, 0x12), 0, ""},
              {changed(0, 0x09, 23), 0, ""},  // one byte too many
              {changed(5, 0, 18), 0, ""},     // without a body
              {{}, 1, ""},
              {changed(0, 0x09, 17), 1, ": Total length is smaller then expected header length\n"},
              {changed(0, 0xFF), 2, "ERROR koru.com.messageadapter: Unable to decode the header.\n"},
              {changed(1, 0), 3, "ERROR koru.com.messageadapter: ProtocolType is set to not used!\n"},
              {changed(3, 17), 4, "ERROR koru.com.messageadapter: Specified hdr-len does not comply.\n"},
              {changed(5, 5), 5, bad_body},
              {changed(0, 0x09, 18), 5, bad_body},
              {changed(19, 3), 5, bad_body}};
  for (const auto& row : rows) {
    test::LogCapture log;
    com::Message message;
    message.payload = row.payload;
    const auto result = com::PbInternalMessageAdapter<pb::RtSignal>(7).deserialize(message);
    EXPECT_EQ(static_cast<int>(result.error), row.error) << row.record;
    EXPECT_EQ(result.success, row.error == 0);
    EXPECT_EQ(result.body.value(), row.error == 0 && row.payload.size() > 18 ? "AB" : "");
    EXPECT_THAT(log.take(), EndsWith(row.record));
  }
}
