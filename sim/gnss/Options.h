#pragma once

#include <memory>
#include <optional>
#include <string>

#include "sim/gnss/LinkRecording.h"
#include "sim/gnss/ReceiverOptions.h"
#include "sim/gnss/Report.h"

namespace ecu::koru::sim {

/// The options of the command line. The receiver's clocks are set when it is switched on.
struct ProgramOptions {
  ReceiverOptions receiver;
  std::optional<int64_t> utc_us;  ///< UTC at power-on; empty: the machine's
  std::string link;               ///< empty: none
  std::string trace;              ///< empty: none
  Report::Options report;
  /// Plays this instead of a receiver; then only `link` and `seconds` apply.
  std::shared_ptr<const LinkRecording> link_recording;
  std::optional<double> seconds;  ///< after which the program ends by itself
};

/// If `options` is empty, the program ends with the status: 0 after --help, 2 if an option is wrong or its
/// file cannot be used; standard error then says why.
struct ParsedOptions {
  std::optional<ProgramOptions> options;
  int exit_status = 0;
};
[[nodiscard]] ParsedOptions parse_options(int argc, const char* const* argv);

}  // namespace ecu::koru::sim
