#pragma once

#include <cstdint>
#include <string>

namespace ecu::koru::gpspub {

/// The settings of the command line, filled by parse_opts().
struct Options {
  std::string log_level;      // -l, -v
  std::string device;         // -g
  std::string config_path;    // -c; ignored: satnavdConfigpath() alone chooses the file
  uint32_t gnss_system = 0;   // -s; 0: not given
  uint32_t augmentation = 0;  // -a; 0: not given
  uint32_t baud_rate = 0;     // -b; 0: not given
  uint32_t debug_flags = 1;   // -d
  bool debug_flags_given = false;
  bool log_to_stdout = false;
  bool disable_hw_init = false;
};

/// Reads the command line. Returns 1 to go on, 0 for the usage text and exit status 1. Ends the process for
/// --version (status 0) and for stray arguments (1). A number that cannot be read is logged and ignored.
[[nodiscard]] int parse_opts(int argc, char** argv, Options& options);

/// Prints the help text on standard output.
void usage();

/// Returns the configuration file: "satnavd.conf" in the working directory, else "/etc/satnavd/satnavd.conf".
/// Empty if neither can be read.
[[nodiscard]] std::string satnavdConfigpath();

}  // namespace ecu::koru::gpspub
