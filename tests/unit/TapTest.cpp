#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/PbInternalMessageAdapter.h"
#include "tools/tap/Fields.h"
#include "tools/tap/Lines.h"

using namespace ecu::koru;
using testing::HasSubstr;

namespace {

/// What is shown of a signal group's message.
std::string line_of(std::string_view topic, std::string_view value) {
  pb::RtSignal body;
  body.set_value(value.data(), value.size());
  const auto message = com::PbInternalMessageAdapter<pb::RtSignal>(1).serialize(body).message;
  return tap::human_line({.topic = topic, .payload = message.payload}, true);
}

}  // namespace

// Nothing that came from outside may reach the terminal as a control character, or pass for a line of its
// own.
TEST(TapTest, CannotBeMadeToForgeALine) {
  const struct {
    std::string_view topic;
    std::string value;
    std::string_view shown;
  } rows[] = {{"system/var/a", "\x1B[2J\nfalse", "value=\\x1B[2J\\x0Afalse\n"},
              {"rt/\x1B\n", "\n", "rt/\\x1B\\x0A ["},
              {"rt/x", std::string(1000, 'A'), "4141...\n"}};
  for (const auto& row : rows) {
    const std::string line = line_of(row.topic, row.value);
    EXPECT_THAT(line, HasSubstr(row.shown));
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(line.find('\x1B'), std::string::npos);
  }
}
