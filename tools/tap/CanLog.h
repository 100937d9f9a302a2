#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/tap/Output.h"
#include "tools/tap/OutputFile.h"

namespace ecu::koru::tap {

/// Writes every signal group that travels as a CAN frame to a candump-style log, each line at once. Leaves
/// out retained messages, which are old, and groups that cannot be unpacked.
class CanLog final : public Output {
 public:
  struct Options {
    std::string file;
    std::string interface = "can0";         ///< the name in the lines
    std::string oem_interface = "can1";     ///< the same for groups of the vehicle maker's bus
    std::optional<uint8_t> source_address;  ///< for every J1939 id; empty: see candump_line()
  };

  /// `replace`: an existing file may be overwritten.
  CanLog(Options options, bool replace) : m_options(std::move(options)), m_file(m_options.file, replace) {}

  /// Returns every topic of the signal database in use.
  [[nodiscard]] std::vector<std::string> topics() const override;
  [[nodiscard]] bool open() override { return m_file.prepare(); }
  void begin(const Moment& beginning, bool live) override;
  void take(const Arrival& arrival) override;
  [[nodiscard]] std::string problem() const override { return m_file.problem(); }

 private:
  const Options m_options;
  OutputFile m_file;
};

}  // namespace ecu::koru::tap
