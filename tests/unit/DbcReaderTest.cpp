#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/DbcReader.h"

using namespace ecu::koru::rt;
using testing::HasSubstr;

namespace {

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
      {with("t/rx", "t/#"), 10, "this is no topic to publish on"},
      {with("RxTopic\" BO_ 2566845438", "RxTopic\" BO_ 1"), 10, "there is no message with id 1"},
      {with("b : 0;\n", "b : 0"), 11, "expected ';', found the end of the file"},
      {with("\"t/rx\";\n", "\"t/rx\n"), 10, "the string that begins here does not end"},
      {with("BO_ 2566845438 USED: 8 A\n", "\n"), 4, "a signal without a message before it"},
      {with("BO_ 100", "BA_ \"RxTopic\" BO_ 100 \"o\";\nBO_ 100"), 6, "there is no message with id 100"},
      {with("STRING ;", "STRING ;BA_DEF_DEF_ \"RxTopic\" \"o\";"), 7, "signal x of message OTHER: signed"},
      {with(" SG_ x : 0|8@1- (1,0) [0|1] \"\" B\n", "\n") + "BA_ \"TxTopic\" BO_ 100 \"o\";", 6,
       "message OTHER has a topic and no signal"},
      {GOOD.substr(0, GOOD.find("BA_ ")), 9, "no message has a TxTopic or RxTopic"},
      {"", 1, "no message has a TxTopic or RxTopic"},
      {std::string(MAX_DBC_SIZE + 1, ' '), 0, "the file is longer than 1 MiB"}};
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
      " SG_ b : 8 | 8 @ 1 + ( 1 , 0 ) [ 0 | 0 ] \"\" A , B // the end\r\n"
      "BO_ 3221225472 VECTOR__INDEPENDENT_SIG_MSG: 0 Vector__XXX\r\n SG_ c m1M : 0|99@0- (0,0) [0|0] \"\" "
      "A\r\n"
      "BO_ 2000 TOO_LONG: 1785 A\r\nSG_ c M : 7|8@0- (1,0) [0|0] \"\" A\r\nSG_ c m0 : 7|8@0- (1,0) [0|0] "
      "\"\" A\r\n"
      "BO_TX_BU_ 2000 : A,B;\r\nEV_ e : 0 [0|1] \"\" 0 1 DUMMY_NODE_VECTOR0 A;\r\n"
      "CM_ SG_ 2566845438 a \"two\r\nlines; \\\"quoted\\\" \";\r\nCM_ BU_ A \"\";\r\n"
      "BA_DEF_ SG_ \"S\" ENUM \"BA_\",\"x\";BA_DEF_REL_ BU_SG_REL_ \"R\" INT 0 1;\r\n"
      "BA_DEF_DEF_ \"S\" \"x\";\r\nBA_DEF_DEF_ \"RxTopic\" \"\";\r\nBA_DEF_DEF_ \"TxTopic\" \"\";\r\n"
      "BA_ \"S\" SG_ 2566845438 a 1;\r\nBA_ \"N\" 5;\r\nBA_ \"RxTopic\" BO_ 2566845438 \"t/\\\"rx\";\r\n"
      "VAL_ 2566845438 a 1 \"on\" 0 \"off\" ;\r\nSIG_GROUP_ 2566845438 G 1 : a b;\r\n"
      "SIG_VALTYPE_ 2000 c : 1;\r\nSG_MUL_VAL_ 2000 c M 0-0;";
  const DbcResult result = parse_dbc(text, "f.dbc");
  ASSERT_NE(result.database, nullptr) << result.error.text();
  ASSERT_EQ(result.database->groups().size(), 1U);
  const GroupDefinition* group = result.database->find("t/\"rx");
  ASSERT_TRUE(group != nullptr && group->tx_topic.empty() && group->signals.size() == 2);
  const SignalDefinition& a = *group->signal("a");
  EXPECT_TRUE(a.scale.factor() == 0.5 && a.scale.offset() == -3 && a.unit == "\xB0;//" && a.width == 8);
  EXPECT_EQ(parse_dbc(GOOD, "").error.text(), ": ");
}
