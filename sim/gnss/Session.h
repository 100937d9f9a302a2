#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "sim/gnss/Console.h"
#include "sim/gnss/Descriptor.h"
#include "sim/gnss/Options.h"
#include "sim/gnss/Pty.h"
#include "sim/gnss/Receiver.h"
#include "sim/gnss/Report.h"
#include "sim/gnss/Trace.h"

namespace ecu::koru::sim {

/// One run of the program: a receiver on the machine's clock, behind a terminal. The terminal, the link and
/// the trace exist as long as the session. The constructor blocks SIGINT, SIGTERM and SIGHUP, and throws
/// std::system_error or FileError.
class Session {
 public:
  explicit Session(const ProgramOptions& options);

  [[nodiscard]] const std::string& path() const { return m_pty.path(); }
  /// Runs until a signal, the end of the chosen time or the end of the recording. Obeys commands on standard
  /// input, and continues after its end.
  void run();
  void print_statistics() const;

 private:
  void switch_on();
  void wait_for_host();
  void look_at_host();
  void deliver();
  void hand_over(std::span<const uint8_t> bytes);
  /// Returns false if the host has written nothing.
  bool hear_host();
  void hear_console();
  [[nodiscard]] int64_t next_wake_us() const;
  void sleep_until(int64_t wake_us);
  void let_host_finish();
  [[nodiscard]] bool over() const;

  ProgramOptions m_options;
  Console m_console;
  Descriptor m_signals;  // readable after a signal
  Pty m_pty;
  std::optional<Link> m_link;
  std::optional<Trace> m_trace;
  Report m_report;
  std::optional<Receiver> m_receiver;  // empty until it is switched on
  bool m_stopped = false;              // by a signal
  bool m_held = false;                 // somebody has the terminal open
  int64_t m_end_us = INT64_MAX;
  int64_t m_wake_us = INT64_MAX;  // when the latest sleep should have ended
  uint64_t m_overrun_bytes = 0;   // bytes that did not fit into the terminal
};

}  // namespace ecu::koru::sim
