#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/Logging.h"

namespace test {

/// What the code under test logs from here on. Records go to standard error, which gtest catches.
class LogCapture {
 public:
  explicit LogCapture(const std::string& level = "DEBUG") {
    ecu::koru::logging::set_log_mode(ecu::koru::logging::LogMode::STDERR);
    ecu::koru::logging::configure_logging(level);
    testing::internal::CaptureStderr();
  }
  ~LogCapture() { (void)take(); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// All of it; ends the capture and puts the default level back.
  std::string take() {
    if (m_taken) return {};
    m_taken = true;
    ecu::koru::logging::configure_logging("INFO");
    return testing::internal::GetCapturedStderr();
  }

 private:
  bool m_taken = false;
};

}  // namespace test
