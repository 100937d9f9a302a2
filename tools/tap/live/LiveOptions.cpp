#include "tools/tap/live/LiveOptions.h"

namespace ecu::koru::tap::live {

void add_live_options(CLI::App& app, Options& options) {
  app.add_flag("--live", options.on, "Show the state of the unit on the whole terminal; q ends it");
}

}  // namespace ecu::koru::tap::live
