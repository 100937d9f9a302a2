#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "input/TerminalDevice.h"
#include "platform/base/Time.h"

namespace test {

/// A terminal device in memory, with fields to set it up and observe it. A wait that times out
/// moves the clock.
struct FakeTerminal final : ecu::koru::gpspub::ITerminalDevice {
  static constexpr int FD = 7;

  std::string incoming;  ///< sent by the receiver and not read yet
  std::string written;   ///< sent to the receiver
  std::string path;      ///< opened last
  termios attributes{};
  bool hung_up = false;  ///< readable, and reads return 0
  bool counts = true;    ///< FIONREAD works
  // While one is not 0, the call fails with it as errno.
  int open_error = 0;
  int attributes_error = 0;
  int wait_error = 0;
  int read_error = 0;
  int write_error = 0;
  int interrupted_writes = 0;  ///< this many writes fail with EINTR first
  int closes = 0;

  int open(const std::string& name) override {
    path = name;
    return open_error == 0 ? FD : failed(open_error);
  }
  int close(int /*fd*/) override { return ++closes, 0; }
  int waitReadable(int fd, int timeout_us, ecu::koru::WakeUp* /*wake*/) override {
    if (fd != FD || wait_error != 0) return failed(wait_error != 0 ? wait_error : EBADF);
    if (!incoming.empty() || hung_up || read_error != 0) return 1;
    ecu::koru::time_source().sleep_ns(int64_t{timeout_us} * 1000);
    return 0;
  }
  bool isWritable(int /*fd*/) override { return true; }
  int bytesReadable(int /*fd*/) override {
    return counts ? static_cast<int>(incoming.size()) : failed(ENOTTY);
  }
  ssize_t read(int /*fd*/, void* data, size_t max) override {
    if (read_error != 0) return failed(read_error);
    const size_t count = std::min(max, incoming.size());
    std::memcpy(data, incoming.data(), count);
    incoming.erase(0, count);
    return static_cast<ssize_t>(count);
  }
  ssize_t write(int /*fd*/, const void* data, size_t len) override {
    if (interrupted_writes > 0) return --interrupted_writes, failed(EINTR);
    if (write_error != 0) return failed(write_error);
    written.append(static_cast<const char*>(data), len);
    return static_cast<ssize_t>(len);
  }
  void dropInput(int /*fd*/) override { incoming.clear(); }
  int getAttributes(int /*fd*/, termios& out) override {
    out = attributes;
    return attributes_error == 0 ? 0 : failed(attributes_error);
  }
  int setAttributes(int /*fd*/, const termios& in) override {
    if (attributes_error != 0) return failed(attributes_error);
    attributes = in;
    return 0;
  }

 private:
  static int failed(int error) { return errno = error, -1; }
};

}  // namespace test
