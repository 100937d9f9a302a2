#pragma once

#include <mutex>
#include <string>

#include "platform/Logging.h"

namespace test {

/// What the code under test logs from here on, a line " LEVEL module: text" a record. One at a time.
class LogCapture {
 public:
  explicit LogCapture(const std::string& level = "DEBUG") {
    using namespace ecu::koru;
    {
      const std::lock_guard lock(mutex());
      captured().clear();
    }
    logging::configure_logging(level);
    logging::set_sink([](logging::Level of, std::string_view module, std::string_view text) {
      const std::lock_guard lock(mutex());
      captured() += logging::text(" ", logging::level_name(of), " ", module, ": ", text, "\n");
    });
  }
  ~LogCapture() { (void)take(); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// All of it; ends the capture and puts the default level back.
  std::string take() {
    if (m_taken) return {};
    m_taken = true;
    ecu::koru::logging::configure_logging("INFO");
    ecu::koru::logging::set_sink(nullptr);
    const std::lock_guard lock(mutex());
    return captured();
  }

 private:
  static std::string& captured() {
    static std::string records;
    return records;
  }
  static std::mutex& mutex() {
    static std::mutex guard;
    return guard;
  }

  bool m_taken = false;
};

}  // namespace test
