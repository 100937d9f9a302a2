#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ecu::koru::logging {

/// A destination of log records. It never waits for its reader: a record that cannot be written at once is
/// lost, and the owner counts it. One thread at a time may use it.
class LogOutput {
 public:
  virtual ~LogOutput() = default;
  /// Returns false if nothing of the record was written.
  [[nodiscard]] virtual bool put(std::string_view record) = 0;
};

/// Writes to a descriptor of this process, such as standard output, and never closes it.
class StreamOutput final : public LogOutput {
 public:
  explicit StreamOutput(int descriptor) : m_descriptor(descriptor) {}
  ~StreamOutput() override;
  StreamOutput(const StreamOutput&) = delete;
  StreamOutput& operator=(const StreamOutput&) = delete;

  [[nodiscard]] bool put(std::string_view record) override;

 private:
  enum class Kind { UNKNOWN, SOCKET, OWN_DESCRIPTION, SHARED_DESCRIPTION };
  void examine();
  [[nodiscard]] size_t write_some(std::string_view bytes);

  const int m_descriptor;
  Kind m_kind = Kind::UNKNOWN;
  int m_own = -1;  // the same pipe or terminal, opened again: its flags are not shared with other processes
  std::string m_rest;  // unwritten part of a record
};

/// Writes to the system's log as syslog(3) does: one datagram per record or, on a stream, its bytes and a
/// NUL. Connects when needed and, while a datagram socket is full, again once a second, so that it finds a
/// restarted log daemon.
class SyslogOutput final : public LogOutput {
 public:
  explicit SyslogOutput(std::string path) : m_path(std::move(path)) {}
  ~SyslogOutput() override { close(); }
  SyslogOutput(const SyslogOutput&) = delete;
  SyslogOutput& operator=(const SyslogOutput&) = delete;

  [[nodiscard]] bool put(std::string_view record) override;

 private:
  enum class Sent { ALL, FULL, NO_CONNECTION };
  [[nodiscard]] bool may_connect_again();
  /// Keeps the present socket if connecting fails.
  [[nodiscard]] bool connect();
  [[nodiscard]] bool connect(int type);
  [[nodiscard]] Sent send(std::string_view record);
  void close();

  const std::string m_path;
  int m_socket = -1;
  bool m_is_stream = false;
  int64_t m_next_connect_ns = 0;  // earliest next connect while the socket is full
};

}  // namespace ecu::koru::logging
