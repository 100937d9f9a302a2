#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/com/Transport.h"
#include "tools/common/StopSignals.h"

namespace ecu::koru::tap {

/// Writes every signal group that travels as a CAN frame to a candump-style log, each line at once. Leaves
/// out retained messages, which are old, and groups that cannot be unpacked. message() runs on the
/// transport's delivery thread.
class CanLog final : public com::ISubscriptionObserver {
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

  /// Creates the file. Returns false if that fails; error() then says why.
  [[nodiscard]] bool open();
  /// Returns the topics to subscribe to: every topic of the signal database in use.
  [[nodiscard]] static std::vector<std::string> topics();

  void message(const std::string& topic, const com::Message& message) override;

  /// Is raised if a line could not be written. Nothing is written after that.
  [[nodiscard]] const tool::Event& failed() const { return m_failed; }
  /// Returns the errno of a failure to create or write the file; 0 if there was none.
  [[nodiscard]] int error() const { return m_error; }

 private:
  void write(std::string_view line);

  const Options m_options;
  int m_fd = -1;
  tool::Event m_failed;
  std::atomic<int> m_error = 0;
};

}  // namespace ecu::koru::tap
