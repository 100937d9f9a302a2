#pragma once

#include <stdexcept>
#include <string>

#include "support/Process.h"

namespace bench {

/// The simulated receiver's program, behind a device in a folder of its own. Throws std::runtime_error if it
/// does not start.
class SimulatedReceiver {
 public:
  explicit SimulatedReceiver(const test::Words& options) : m_process(command(options)) {
    constexpr int PATIENCE_MS = 20'000;
    if (!m_process.wait_for_output("\n", PATIENCE_MS))
      throw std::runtime_error("gnss-sim: " + m_process.err());
  }

  [[nodiscard]] std::string device() const { return m_folder / "receiver"; }
  /// Returns the file in which it notes when it sent each sentence.
  [[nodiscard]] std::string trace() const { return m_folder / "trace"; }

 private:
  [[nodiscard]] test::Words command(const test::Words& options) const {
    test::Words words{test::program("gnss-sim"), "--gsv", "off", "--link", device(),
                      "--sentence-trace",        trace()};
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }

  test::TempDir m_folder;
  test::Process m_process;
};

}  // namespace bench
