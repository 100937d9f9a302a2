#pragma once

#include <string>
#include <vector>

#include "tools/tap/Output.h"
#include "tools/tap/OutputFile.h"

namespace ecu::koru::tap {

/// Keeps every message in a file, as Recording.h describes it, each line at once.
class Recorder final : public Output {
 public:
  struct Options {
    std::string file;
    bool replace = false;             ///< an existing file is overwritten
    std::vector<std::string> topics;  ///< MQTT topic filters
  };

  explicit Recorder(Options options)
      : m_options(std::move(options)), m_file(m_options.file, m_options.replace) {}

  [[nodiscard]] std::vector<std::string> topics() const override { return m_options.topics; }
  [[nodiscard]] bool open() override { return m_file.prepare(); }
  /// Creates the file.
  void begin(const Moment& beginning, bool live) override;
  void take(const Arrival& arrival) override;
  [[nodiscard]] std::string problem() const override { return m_file.problem(); }

 private:
  const Options m_options;
  OutputFile m_file;
};

}  // namespace ecu::koru::tap
