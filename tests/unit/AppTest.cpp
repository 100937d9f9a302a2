#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <list>
#include <map>
#include <sstream>

#include "app/ApplyConfiguration.h"
#include "app/Options.h"
#include "input/SerialInput.h"
#include "nmea/GnssUtils.h"
#include "platform/MemoryTransport.h"
#include "platform/MqttOptions.h"
#include "support/FakeTerminal.h"
#include "support/LogCapture.h"

using namespace ecu::koru;
using namespace ecu::koru::gpspub;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

Options parsed(const std::string& line) {
  static std::list<std::vector<std::string>> lines;  // getopt remembers where it was
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

/// The service as a command line and a file set it up.
struct Configured {
  SerialInput* input = new SerialInput(std::make_unique<test::FakeTerminal>());  // owned by the service
  std::shared_ptr<com::ITransportClient> bus = std::make_shared<com::MemoryTransport>();
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
    applyConfiguration(parsed(command_line), *config, service);
    log = capture.take();
  }
};

}  // namespace

TEST(AppTest, AnOptionBeatsTheFileAndTheFileTheDefault) {
  const struct {
    std::string options, file;
    unsigned baud, systems, augmentation, log_flags;
    bool stopped;
    std::string record;
  } rows[] = {{"", "", 38400, 3, 3, 0x40, false, "radio_silence_configured = true"},
              {"", "baud_rate = 0x2580\ngnss_system = 01\ngnss_augmentation = 04\ndebugflags = 0x10", 9600, 3,
               4, 0x10, false, "gnss_augmentation = 0x4"},
              {"-b 57600 --gnsssystem 0xA --gnssaugmentation=2 -d 8 --disable-hw-init",
               "baud_rate = 9600\ngnss_augmentation = 1\ndebugflags = 0x10", 57600, 10, 2, 0x40, true,
               "arg gnss_system = 0xa"},
              {"-s 2", "disable_hw_init = yes\nloglevel = WARNING", 38400, 2, 0, 0x40, false,
               "arg gnss_system = 0x2"},
              {"", "baud_rate = 14400\ndisable_hw_init = 1", 19200, 3, 3, 0x40, true,
               "baud rate not supported 14400"},
              {"", "baud_rate = fast\ngnss_augmentation = x\ndebugflags = x", 38400, 3, 3, 0x40, false,
               "baud rate invalid fast"},
              {"", "disable_hw_init = true\nbaud_rate = 99999999999", 38400, 3, 3, 0x40, true,
               "configProp error stoul"}};
  for (const auto& row : rows) {
    GnssUtils::setLogFlags(0x40);
    const Configured unit(row.options, row.file);
    EXPECT_THAT((std::vector{unit.input->getBaudRate(), unit.ublox.gnssSystemRequested(),
                             unit.ublox.gnssAugmentationRequested(), GnssUtils::logFlags()}),
                ElementsAre(row.baud, row.systems, row.augmentation, row.log_flags))
        << row.file;
    EXPECT_EQ(unit.ublox.isStopped(), row.stopped) << row.file;
    EXPECT_THAT(unit.log, HasSubstr(" koru.gpspub: " + row.record + "\n"));
    EXPECT_EQ(unit.log.find("radio_silence_configured") == std::string::npos, row.file.ends_with("WARNING"));
  }
  GnssUtils::setLogFlags(0);
  const std::string other = "\" is none of true, 1, false and 0, it is taken as false\n";
  const std::string silence = "\" is neither true nor 1, radio silence is heeded all the same\n";
  const struct {
    std::string file, warning;
  } words[] = {{"disable_hw_init = yes", "disable_hw_init = \"yes" + other},
               {"set_system_time = TRUE", "set_system_time = \"TRUE" + other},
               {"disable_mqtt_system_selection = o\x1b", "_mqtt_system_selection = \"o\\x1B" + other},
               {"radio_silence_configured = off", "radio_silence_configured = \"off" + silence},
               {"radio_silence_configured = false", "radio_silence_configured = \"false" + silence},
               {"disable_hw_init = 0\nset_system_time = 1\nradio_silence_configured =", ""}};
  for (const auto& row : words) {
    const Configured unit("", row.file);
    EXPECT_THAT(unit.log, HasSubstr(row.warning));
    EXPECT_EQ(unit.log.find("WARNING") == std::string::npos, row.warning.empty()) << unit.log;
    EXPECT_FALSE(unit.ublox.isStopped());
  }
  const Configured unit(
      "", "raw_cmd_post[4] = 7A\nraw_cmd_post[0] = b562\nraw_cmd_post[1] = b5xx\nraw_cmd_post[2] = b");
  EXPECT_THAT(unit.ublox.rawCmdPost(), ElementsAre("\xB5\x62", "z"));
  EXPECT_THAT(unit.log, HasSubstr("Hex to bin error in hex_raw_cmd_post at pos 2 in b5xx\n"));
}

TEST(AppTest, TheBrokersNumbersMayHaveAnyBase) {
  const std::map<std::string, uint16_t> good{
      {"1884", 1884}, {"0x75C", 1884}, {"0X75c", 1884}, {"03534", 1884}};
  const auto port = [](const std::string& text) {
    config::Configuration config;
    config.set("port", text);
    return com::read_mqtt_options(config).port;
  };
  for (const auto& [text, number] : good) EXPECT_EQ(port(text), number) << text;
  for (const char* text :
       {"0", "00", "-1884", "+1884", "0x", "0x-1", "-0x1", "08", "0x75CG", "1884 ", "65536"}) {
    test::LogCapture log;
    EXPECT_EQ(port(text), 1883) << text;
    EXPECT_THAT(log.take(), HasSubstr("ERROR koru.com.mqtt: Configuration: port = \"" + std::string(text) +
                                      "\" is no number from 1 to 65535, the default is used\n"));
  }
}

// Each line of the installed file, taken as it stands, changes nothing.
TEST(AppTest, TheInstalledFileTellsTheDefaults) {
  std::ifstream file(INSTALLED_CONFIGURATION);
  std::string settings;
  std::vector<std::string> keys;
  for (std::string line; std::getline(file, line);) {
    const auto equals = line.find(" =");
    if (equals == std::string::npos || line.find(' ') != equals || line[0] != '#') continue;
    keys.push_back(line.substr(1, equals - 1));
    settings += line.substr(1) + "\n";
  }
  config::Configuration defaults;
  registerKeys(defaults);
  auto installed = std::make_unique<config::Configuration>();
  std::istringstream text(settings);
  config::set_config_from_input(installed, text);
  registerKeys(*installed);
  test::LogCapture log;
  EXPECT_TRUE(installed->verify());
  const com::MqttOptions expected = com::read_mqtt_options(defaults);
  const com::MqttOptions found = com::read_mqtt_options(*installed);
  EXPECT_EQ(log.take(), "");
  EXPECT_GT(keys.size(), 20U);
  for (const auto& key : keys) {
    const std::string value = defaults.get(key);
    EXPECT_TRUE(value.empty() || installed->get(key) == value) << key;
  }
  EXPECT_EQ(found.host + found.client_name, expected.host + expected.client_name);
  EXPECT_EQ(found.port, expected.port);
  EXPECT_EQ(found.connect_timeout, expected.connect_timeout);
  EXPECT_EQ(found.var_timeout, expected.var_timeout);
}
