#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/com/Transport.h"
#include "tools/common/StopSignals.h"

namespace ecu::koru::tap {

/// Writes every signal group that travels as a CAN frame to a candump-style log, each line written out at
/// once. A group that cannot be unpacked and one that the broker had retained is no frame of now and left
/// out. Its message() runs on the transport's delivery thread.
class CanLog final : public com::ISubscriptionObserver {
 public:
  struct Options {
    std::string file;                       ///< replaced when it is there
    std::string interface = "can0";         ///< in the lines
    std::string oem_interface = "can1";     ///< the same for the groups of the vehicle maker's own bus
    std::optional<uint8_t> source_address;  ///< of every J1939 id
  };

  explicit CanLog(Options options) : m_options(std::move(options)) {}
  ~CanLog() override;
  CanLog(const CanLog&) = delete;
  CanLog& operator=(const CanLog&) = delete;

  /// Makes the file. False when that fails; error() tells why.
  [[nodiscard]] bool open();
  /// What has to be subscribed: every topic of the signal database in use.
  [[nodiscard]] static std::vector<std::string> topics();

  void message(const std::string& topic, const com::Message& message) override;

  /// Raised when a line could not be written; nothing more is written then.
  [[nodiscard]] const tool::Event& failed() const { return m_failed; }
  /// Why the file could not be made or written, an errno; 0 when it could.
  [[nodiscard]] int error() const { return m_error; }

 private:
  void write(std::string_view line);

  const Options m_options;
  int m_fd = -1;
  tool::Event m_failed;
  std::atomic<int> m_error = 0;
};

}  // namespace ecu::koru::tap
