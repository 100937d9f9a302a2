#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "platform/base/Logging.h"

namespace test {

/// Captures the log of the code under test, a line " LEVEL module: text" a record. Only one may exist
/// at a time.
class LogCapture {
 public:
  explicit LogCapture(const std::string& level = "DEBUG") {
    using namespace ecu::koru;
    logging::configure_logging(level);
    logging::set_sink([](logging::Level of, std::string_view module, std::string_view text) {
      const std::lock_guard lock(s_mutex);
      s_records += logging::text(" ", logging::level_name(of), " ", module, ": ", text, "\n");
    });
  }
  ~LogCapture() { (void)take(); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Returns the records so far.
  [[nodiscard]] static std::string so_far() {
    const std::lock_guard lock(s_mutex);
    return s_records;
  }
  /// Returns all records, ends the capture and restores the default level.
  std::string take() {
    ecu::koru::logging::configure_logging("INFO");
    ecu::koru::logging::set_sink(nullptr);
    const std::lock_guard lock(s_mutex);
    return std::exchange(s_records, {});
  }

 private:
  static inline std::mutex s_mutex;
  static inline std::string s_records;
};

}  // namespace test
