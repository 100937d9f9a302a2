#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/tap/Output.h"

namespace ecu::koru::tap {

/// Writes every signal group that travels as a CAN frame to a candump-style log, each line at once. Leaves
/// out retained messages, which are old, and groups that cannot be unpacked.
class CanLog final : public Output {
 public:
  struct Options {
    std::string file;                       ///< replaced if it exists
    std::string interface = "can0";         ///< the name in the lines
    std::string oem_interface = "can1";     ///< the same for groups of the vehicle maker's bus
    std::optional<uint8_t> source_address;  ///< for every J1939 id; empty: see candump_line()
  };

  explicit CanLog(Options options) : m_options(std::move(options)) {}
  ~CanLog() override;
  CanLog(const CanLog&) = delete;
  CanLog& operator=(const CanLog&) = delete;

  /// Returns every topic of the signal database in use.
  [[nodiscard]] std::vector<std::string> topics() const override;
  /// Creates the file.
  [[nodiscard]] bool open() override;
  void take(const Arrival& arrival) override;
  [[nodiscard]] std::string problem() const override;

 private:
  void write(std::string_view line);

  const Options m_options;
  int m_fd = -1;
  std::atomic<int> m_error = 0;  // errno of a failure to create or write the file
};

}  // namespace ecu::koru::tap
