#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/ecu/UnitState.h"
#include "tools/tap/Lines.h"

using namespace ecu::koru;
using sim::parse_command;
using sim::UnitState;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// What a viewer of the bus would see of a command: "topic [retained] fields".
std::vector<std::string> said(std::string_view command) {
  std::vector<std::string> out;
  for (const auto& [topic, message] : UnitState(false).apply(parse_command(command))) {
    const std::string line = tap::human_line({.topic = topic, .payload = message.payload}, false);
    const size_t fields = line.find("] ") + 2;
    out.push_back(topic + (message.retained ? " retained " : " ") +
                  line.substr(fields, line.size() - fields - 1));
  }
  return out;
}

}  // namespace

TEST(EcuSimTest, EveryCommandSaysItsMessage) {
  const std::string zone = "system/time/timezone ";
  const struct {
    std::string_view line;
    std::string message;
  } rows[] = {
      {"var hwversion=zpt", "system/var/hwversion retained value=zpt"},
      {"  var name  a text = with blanks \r", "system/var/name retained value=a text = with blanks"},
      {"timezone +01:00", zone + "hour_offset=1 minute_offset=0 summer_time=false source=SYSTEM"},
      {"timezone -03:30,summer,source=user",
       zone + "hour_offset=-3 minute_offset=-30 summer_time=true source=USER"},
      {"timezone none", zone + "hour_offset=0 minute_offset=0 summer_time=false source=NONE"},
      {"blackout on", "rt/system/blackout_mode blackout_mode 01"},
      {"hw-version AB 1", "rt/system/hw_version hw_version 41422031 \"AB 1\""},
      {"source local", "system/gnss/source source=LOCAL_RECEIVER"},
      {"log-config 0100 0080", "system/gnss/log_config value=01000080"},
  };
  for (const auto& row : rows) EXPECT_THAT(said(row.line), ElementsAre(row.message)) << row.line;
  EXPECT_THAT(said("help"), IsEmpty());
}

TEST(EcuSimTest, ABrokenCommandIsRefusedWithAReason) {
  const struct {
    std::string line;
    std::string_view reason;
  } rows[] = {
      {"publish x", "unknown command 'publish'"},
      {"var a/b c", "a variable's name, found 'a/b'"},
      {"param", "param: expected a parameter id like 0xA00F, found ''"},
      {"param 0xA00F 1", "bytes in hex, two digits each, found '1'"},
      {"param 0xA00F 01 otaid", "expected nootaid or nothing, found 'otaid'"},
      {"timezone +24:00", "found '+24:00'"},
      {"blackout ON", "found 'ON'"},
      {"hw-version " + std::string(65, 'x'), "a text of 1 to 64 bytes"},
      {"source satellite", "expected local, can or unknown"},
      {"raw system/# 00", "found 'system/#'"},
  };
  for (const auto& row : rows) {
    try {
      (void)parse_command(row.line);
      ADD_FAILURE() << row.line;
    } catch (const sim::BadCommand& error) {
      EXPECT_THAT(error.what(), HasSubstr(row.reason));
    }
  }
  EXPECT_TRUE(sim::is_blank(" # var a b") && sim::is_blank(" \t\r") && !sim::is_blank("var"));
}
