#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <list>
#include <set>
#include <sstream>

#include "app/ApplyConfiguration.h"
#include "app/Options.h"
#include "input/SerialInput.h"
#include "platform/com/MemoryTransport.h"
#include "platform/com/MqttOptions.h"
#include "platform/com/Topics.h"
#include "support/Envelope.h"
#include "support/FakeTerminal.h"
#include "support/LogCapture.h"
#include "wire/ServiceLog.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using namespace testing;

namespace {

Options parsed(const std::string& line) {
  static std::list<std::vector<std::string>> lines;  // getopt keeps pointers into the last words
  std::istringstream input("satnavd " + line);
  auto& words =
      lines.emplace_back(std::istream_iterator<std::string>(input), std::istream_iterator<std::string>());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  Options options;
  EXPECT_EQ(parse_opts(static_cast<int>(words.size()), argv.data(), options), 1) << line;
  logging::set_log_mode(logging::LogMode::STDERR);
  return options;
}

struct Configured {
  SerialInput* input = new SerialInput(std::make_unique<test::FakeTerminal>());  // owned by the service
  std::shared_ptr<com::MemoryTransport> memory = std::make_shared<com::MemoryTransport>();
  std::shared_ptr<com::ITransportClient> bus = memory;
  GPSDClient service{bus,   "v",           "true",
                     "zpt", "/dev/ttyFP3", UnitHardware{std::unique_ptr<IGnssInput>(input)}};
  UbloxConfig& ublox = service.ubloxConfig();
  std::string log;

  Configured(const std::string& command_line, const std::string& text) {
    test::LogCapture capture;
    auto config = std::make_unique<config::Configuration>();
    std::istringstream file(text);
    config::set_config_from_input(config, file);
    registerKeys(*config);
    EXPECT_TRUE(config->verify());
    applyConfiguration(parsed(command_line), readSettings(*config), service);
    log = capture.take();
  }

  /// Returns which requests on the bus the service follows: c(onstellations), l(og flags).
  std::string follows() {
    for (const auto& topic : {topic::PARAMETER_BEIDOU, topic::LOG_CONFIG})
      memory->inject(topic, test::envelopedSignal("\1"));
    std::string follows = (service.requests().gnssSystemRequested() & 4) != 0 ? "c" : "";
    return GnssUtils::logFlags() == 1 ? follows + "l" : follows;
  }
};

}  // namespace

TEST(AppTest, AnOptionBeatsTheFileAndTheFileTheDefault) {
  const std::string other = " is not true, 1, false or 0; it is taken as false";
  const std::string silence = "radio_silence_configured = true";
  const std::vector<unsigned> no_change = {38400, 3, 3, 0x40, 0};
  const std::string options = "-b 57600 --gnsssystem 0xA --gnssaugmentation=2 -d 8 --disable-hw-init";
  const std::string file = "baud_rate = 0x2580\ngnss_system = 01\ngnss_augmentation = 04\ndebugflags = 0x10";
  const std::string selection = "disable_mqtt_system_selection = ";
  const struct {
    std::string options, file;
    std::vector<unsigned> numbers;  // baud rate, systems, augmentation, log flags, stopped
    std::string record, follows = "c";
  } rows[] = {
      {"", "", no_change, silence},
      {"", file, {9600, 3, 4, 0x10, 0}, "gnss_augmentation = 0x4", "cl"},
      {options, file, {57600, 10, 2, 0x40, 1}, "arg gnss_system = 0xa"},
      {"-s 2", "disable_hw_init = yes\nloglevel = WARNING", {38400, 2, 0, 0x40, 0}, "arg gnss_system = 0x2"},
      {"", "baud_rate = 14400\ndisable_hw_init = 1", {19200, 3, 3, 0x40, 1}, "baud rate not supported 14400"},
      {"", "baud_rate = fast\ngnss_augmentation = x\ndebugflags = x", no_change, "baud rate invalid fast"},
      {"",
       "disable_hw_init = true\nbaud_rate = 99999999999",
       {38400, 3, 3, 0x40, 1},
       "configProp error stoul"},
      {"", selection + "true\ndebugflags = 0xFFFFFFFF", {38400, 3, 3, 0xFFFFFFFF, 0}, silence, "l"},
      {"", selection + "1", no_change, silence, ""},
      {"", selection + "o\x1b", no_change, selection + "\"o\\x1B\"" + other},
      {"", "disable_hw_init = yes", no_change, "disable_hw_init = \"yes\"" + other},
      {"", "radio_silence_configured = off", no_change,
       "radio_silence_configured = \"off\" is neither true nor 1, radio silence is heeded all the same"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.options + row.file);
    GnssUtils::setLogFlags(0x40);
    Configured unit(row.options, row.file);
    EXPECT_EQ((std::vector{unit.input->getBaudRate(), unit.service.requests().gnssSystemRequested(),
                           unit.ublox.gnssAugmentationRequested(), GnssUtils::logFlags(),
                           static_cast<unsigned>(unit.ublox.isStopped())}),
              row.numbers);
    EXPECT_THAT(unit.log, HasSubstr(" koru.gpspub: " + row.record + "\n"));
    EXPECT_EQ(unit.log.find("radio_silence_configured") == std::string::npos, row.file.ends_with("WARNING"));
    EXPECT_EQ(unit.follows(), row.follows);
  }
  GnssUtils::setLogFlags(0);
  EXPECT_EQ(parsed("-d 0xFFFFFFFF").debug_flags, 0xFFFFFFFFU);
  const Configured unit("",
                        "raw_cmd_post[4] = 7A\nraw_cmd_post[0] = b562\nraw_cmd_post[1] = b5xx\n"
                        "raw_cmd_post[2] = b\nraw_cmd_post[5] = 41");
  EXPECT_THAT(unit.ublox.rawCmdPost(), ElementsAre("\xB5\x62", "z"));
  EXPECT_THAT(unit.log, HasSubstr("Hex to bin error in hex_raw_cmd_post at pos 2 in b5xx\n"));
  EXPECT_THAT(unit.log, HasSubstr("configuration line 5: unknown key 'raw_cmd_post[5]' ignored\n"));
}

TEST(AppTest, TheBrokersNumbersMayHaveAnyBase) {
  const std::set<std::string> good{"1884", "0x75C", "0X75c", "03534"};
  for (const char* text : {"1884", "0x75C", "0X75c", "03534", "0", "00", "-1884", "+1884", "0x", "0x-1",
                           "-0x1", "08", "0x75CG", "1884 ", "65536"}) {
    config::Configuration config;
    config.set("port", text);
    test::LogCapture log;
    EXPECT_EQ(com::read_mqtt_options(config).port, good.contains(text) ? 1884 : 1883) << text;
    EXPECT_EQ(log.take().empty(), good.contains(text)) << text;
  }
}

// The commented-out keys of the installed file have their default values.
TEST(AppTest, TheInstalledFileTellsTheDefaults) {
  std::ifstream file(INSTALLED_CONFIGURATION);
  config::Configuration installed, defaults;
  registerKeys(defaults);
  for (std::string line; std::getline(file, line);) {
    const auto equals = line.find(" =");
    if (equals == std::string::npos || line.find(' ') != equals || line[0] != '#') continue;
    const std::string key = line.substr(1, equals - 1),
                      value = line.substr(std::min(equals + 3, line.size()));
    installed.set(key, value);
    EXPECT_THAT(defaults.get(key), AnyOf("", value)) << key;
  }
  test::LogCapture log;
  const auto broker = [](const config::Configuration& config) {
    const auto options = com::read_mqtt_options(config);
    return std::tuple(options.host, options.client_name, options.port, options.connect_timeout,
                      options.var_timeout);
  };
  EXPECT_EQ(broker(installed), broker(defaults));
  EXPECT_EQ(log.take(), "");
}
