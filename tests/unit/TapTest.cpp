#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Envelope.h"
#include "tools/tap/Fields.h"
#include "tools/tap/Lines.h"

using namespace ecu::koru;

// Nothing from outside may reach the terminal as a control character or look like a separate line.
TEST(TapTest, CannotBeMadeToForgeALine) {
  const struct {
    std::string_view topic;
    std::string value;
    std::string_view shown;
  } rows[] = {{"system/var/a", "\x1B[2J\nfalse", "value=\\x1B[2J\\x0Afalse\n"},
              {"rt/\x1B\n", "\n", "rt/\\x1B\\x0A ["},
              {"rt/x", std::string(1000, 'A'), "4141...\n"}};
  for (const auto& row : rows) {
    const auto message = test::envelopedSignal(row.value);
    const std::string line = tap::human_line({.topic = row.topic, .payload = message.payload}, true);
    EXPECT_THAT(line, testing::HasSubstr(row.shown));
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(line.find('\x1B'), std::string::npos);
  }
}
