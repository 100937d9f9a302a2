#include "tools/tap/live/LiveOptions.h"

namespace ecu::koru::tap::live {

void add_live_options(CLI::App& app, Options& options) {
  CLI::Option* const live =
      app.add_flag("--live", options.on, "Show the state of the unit on the whole terminal; q ends it");
  for (const auto* const name :
       {"--json", "--sentences", "--changes", "--count", "--nmea", "--summary", "--prometheus", "--replay"})
    live->excludes(app.get_option(name));
}

}  // namespace ecu::koru::tap::live
