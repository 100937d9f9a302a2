#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/tap/Output.h"
#include "tools/tap/OutputFile.h"
#include "tools/tap/Track.h"

namespace ecu::koru::tap {

/// Format and file of each --export.
using ExportOptions = std::vector<std::pair<std::string, std::string>>;

/// Adds --export. `options` must outlive `app`.
void add_export_options(CLI::App& app, ExportOptions& options);

/// Writes the valid fixes to a file as a track, each at once. The file is complete after each of them.
class Export final : public Output {
 public:
  /// `format` is one of track_formats(). `replace`: an existing file may be overwritten.
  Export(const std::string& format, std::string file, bool replace)
      : m_format(track_format(format)), m_file(std::move(file), replace) {}

  [[nodiscard]] std::vector<std::string> topics() const override;
  [[nodiscard]] bool open() override { return m_file.prepare(); }
  /// Creates the file, which is a track without fixes then.
  void begin(const Moment& beginning, bool live) override;
  void take(const Arrival& arrival) override;
  [[nodiscard]] std::string problem() const override { return m_file.problem(); }

 private:
  const std::unique_ptr<TrackFormat> m_format;
  OutputFile m_file;
  Segments m_segments;
};

}  // namespace ecu::koru::tap
