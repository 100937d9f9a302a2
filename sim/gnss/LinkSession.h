#pragma once

#include <cstdint>
#include <optional>

#include "sim/gnss/Descriptor.h"
#include "sim/gnss/LinkPlayback.h"
#include "sim/gnss/Options.h"
#include "sim/gnss/Pty.h"

namespace ecu::koru::sim {

/// One run of the program with the recording of a link instead of a receiver: plays the receiver's part on a
/// terminal. Terminal and link exist as long as the session. The constructor blocks SIGINT, SIGTERM and
/// SIGHUP, and throws std::system_error.
class LinkSession {
 public:
  explicit LinkSession(const ProgramOptions& options);

  [[nodiscard]] const std::string& path() const { return m_pty.path(); }
  /// Runs until a signal, the end of the chosen time or the end of the recording.
  void run();
  void print_statistics() const;

 private:
  void look_at_host();
  /// Returns false if the host has written nothing.
  bool hear_host();
  void sleep_until(int64_t wake_us);
  void let_host_finish();
  [[nodiscard]] bool over() const;

  ProgramOptions m_options;
  Descriptor m_signals;  // readable after a signal
  Pty m_pty;
  std::optional<Link> m_link;
  LinkPlayback m_playback;
  bool m_stopped = false;  // by a signal
  bool m_held = false;     // somebody has the terminal open
  int64_t m_end_us = INT64_MAX;
  uint64_t m_overrun_bytes = 0;  // bytes that did not fit into the terminal
};

}  // namespace ecu::koru::sim
