#include "app/Options.h"

#include <getopt.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>

#include "app/Version.h"
#include "platform/base/Numbers.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr const char* SHORT_OPTIONS = "h:c:l:vV :d:g:s:a:b:";

constexpr std::array<option, 13> LONG_OPTIONS{{{"baudrate", required_argument, nullptr, 'b'},
                                               {"config", required_argument, nullptr, 'c'},
                                               {"debugflags", required_argument, nullptr, 'd'},
                                               {"gnssdevice", required_argument, nullptr, 'g'},
                                               {"gnsssystem", required_argument, nullptr, 's'},
                                               {"gnssaugmentation", required_argument, nullptr, 'a'},
                                               {"disable-hw-init", no_argument, nullptr, 'I'},
                                               {"loglevel", required_argument, nullptr, 'l'},
                                               {"verbose", no_argument, nullptr, 'v'},
                                               {"log-stdout", no_argument, nullptr, 'L'},
                                               {"version", no_argument, nullptr, 'V'},
                                               {"help", no_argument, nullptr, 'H'},
                                               {nullptr, 0, nullptr, 0}}};

/// Stores `argument` and returns true if it is a number. Logs it otherwise.
bool storeNumber(const char* argument, const char* complaint, uint32_t& number) {
  try {
    number = to_u32_base0(argument);
    return true;
  } catch (const std::exception&) {
    LOG.error(complaint, logging::escaped(argument));
    return false;
  }
}

[[noreturn]] void printVersion() {
  std::cout << versionBanner() << std::endl;
  std::exit(EXIT_SUCCESS);
}

/// Returns false for an option that is answered with the usage text.
bool storeOption(int letter, Options& options) {
  switch (letter) {
    case 'I':
      options.disable_hw_init = true;
      return true;
    case 'L':
      logging::set_log_mode(logging::LogMode::STDOUT);
      options.log_to_stdout = true;
      return true;
    case 'V':
      printVersion();
    case 'c':
      options.config_path = optarg;
      return true;
    case 'g':
      options.device = optarg;
      return true;
    case 'l':
      options.log_level = optarg;
      return true;
    case 'v':
      options.log_level = "DEBUG";
      return true;
    case 'b':
      storeNumber(optarg, "arg_baud_rate invalid ", options.baud_rate);
      return true;
    case 's':
      storeNumber(optarg, "arg_gnss_system invalid ", options.gnss_system);
      return true;
    case 'a':
      storeNumber(optarg, "arg_gnss_augmentation invalid ", options.augmentation);
      return true;
    case 'd':
      if (storeNumber(optarg, "arg_fine_debug_flags invalid ", options.debug_flags))
        options.debug_flags_given = true;
      return true;
    default:
      return false;
  }
}

bool isReadable(const std::string& path) {
  std::ifstream file(path);
  if (!file.is_open()) return false;
  file.peek();  // a folder can be opened but not read
  return !file.bad();
}

}  // namespace

int parse_opts(int argc, char** argv, Options& options) {
  optind = 1;
  for (;;) {
    const int letter = getopt_long(argc, argv, SHORT_OPTIONS, LONG_OPTIONS.data(), nullptr);
    if (letter == -1) break;
    if (!storeOption(letter, options)) return 0;
  }
  if (optind < argc) {
    LOG.error("No additional arguments required!");
    std::exit(EXIT_FAILURE);
  }
  return 1;
}

void usage() {
  std::cout << R"(Usage: satnavd [OPTION]

Options:

  -c, --config CONFIG     provide a satnavd configuration file
  -v, --verbose           set verbose logging.
  --log-stdout            Set logging to STDOUT instead of syslog.
  -l, --loglevel          Enforces the loglevel and overrides the LOG_LEVEL.
        Possibles values: EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, DEBUG
        Default: )"
            << logging::level_name(logging::DEFAULT_LEVEL) << R"(
  --disable-hw-init       Disable hw initialisation. For simulated input.
  -g, --gnssdevice        com path to connect to gnss. e.g. /dev/ttyFP3 or /dev/ttyUSB0
  -s, --gnsssystem        Bit mapped which gnss system to use.
                          GPS              0x01
                          GLONASS          0x02
                          GALILEO          0x08
                          GPS AND GLONASS  0x03 supported by gnss hardware.
  -a, --gnssaugmentation  Bit mapped which augmentation system to use.
                          SBAS             0x01
                          QZSS             0x02
                          IMES             0x04
  --help                  show this help
)" << std::endl;
}

std::string satnavdConfigpath() {
  for (const char* path : {"satnavd.conf", "/etc/satnavd/satnavd.conf"}) {
    if (isReadable(path)) return path;
  }
  return {};
}

}  // namespace ecu::koru::gpspub
