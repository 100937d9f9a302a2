#pragma once

#include <optional>
#include <string>

#include "sim/gnss/ReceiverOptions.h"
#include "sim/gnss/Report.h"

namespace ecu::koru::sim {

/// What the command line asks for. The receiver's clocks are set when it is switched on.
struct ProgramOptions {
  ReceiverOptions receiver;
  std::optional<int64_t> utc_us;  ///< UTC at power-on; nothing: the machine's
  std::string link;               ///< empty: none
  std::string trace;              ///< empty: none
  Report::Options report;
  std::optional<double> seconds;  ///< after which the program ends by itself
};

/// Options, or nothing and the exit status: 0 after --help, 2 with a text on standard error when they are
/// wrong or a file that they name cannot be used.
struct ParsedOptions {
  std::optional<ProgramOptions> options;
  int exit_status = 0;
};
[[nodiscard]] ParsedOptions parse_options(int argc, const char* const* argv);

}  // namespace ecu::koru::sim
