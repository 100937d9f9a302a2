#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "tools/common/BusConnection.h"
#include "tools/tap/CanLog.h"
#include "tools/tap/Export.h"
#include "tools/tap/NmeaOptions.h"
#include "tools/tap/RecordingOptions.h"
#include "tools/tap/Viewer.h"
#include "tools/tap/live/LiveOptions.h"

namespace ecu::koru::tap {

/// The command line of satnav-tap: where the messages come from, and one part for each output.
struct Options {
  tool::BusOptions bus{.program = "satnav-tap"};
  std::string signal_database;
  double seconds = 0;  ///< ends after so many; 0: no limit
  bool force = false;  ///< files that exist are replaced
  Viewer::Options viewer;
  live::Options live;
  CanLog::Options can_log;
  NmeaOptions nmea;
  ExportOptions exports;
  RecordingOptions recording;
};

/// Adds every option. `options` must outlive `app`.
void add_options(CLI::App& app, Options& options);

}  // namespace ecu::koru::tap
