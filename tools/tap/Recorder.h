#pragma once

#include <string>
#include <vector>

#include "tools/tap/Output.h"
#include "tools/tap/OutputFile.h"

namespace ecu::koru::tap {

/// Keeps every message in a file, as Recording.h describes it, each line at once. If the run ends before it
/// begins (there is no broker, the recording that is read has no header), a new file is removed again.
class Recorder final : public Output {
 public:
  struct Options {
    std::string file;
    bool replace = false;             ///< an existing file is overwritten
    std::vector<std::string> topics;  ///< MQTT topic filters
  };

  explicit Recorder(Options options)
      : m_options(std::move(options)), m_file(m_options.file, m_options.replace) {}
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  [[nodiscard]] std::vector<std::string> topics() const override { return m_options.topics; }
  /// Creates the file.
  [[nodiscard]] bool open() override;
  void begin(const Moment& beginning, bool live) override;
  void take(const Arrival& arrival) override;
  void close() override;
  [[nodiscard]] std::string problem() const override { return m_file.problem(); }

 private:
  void append(std::string_view line);

  const Options m_options;
  OutputFile m_file;
  bool m_created = false;
  bool m_begun = false;
  bool m_keep = false;
};

}  // namespace ecu::koru::tap
