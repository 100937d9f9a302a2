#pragma once

#include <fstream>
#include <iosfwd>
#include <string>

#include "sim/gnss/Receiver.h"

namespace ecu::koru::sim {

/// Writes the receiver's actions as lines for people, each flushed at once:
///
///   +12.345678 host> CFG-PRT poll 06 00 len 0
///   +12.387344 <recv ACK-ACK of CFG-PRT 05 01 len 2: 06 00
///   +12.400000 -- power fails
///   2026-05-01T10:00:01.000Z 48.3050052 10.9050028 4.340 km/h 20.00 deg 480.0 m accuracy 2.2 m, 9 satellites
///
/// A line begins with seconds since power-on; for a frame, those of its last byte. The last one, a fix,
/// begins with its UTC and is rounded only here. Each of the functions throws FileError if a line cannot be
/// written, but goes on without lines if their reader has gone away.
class Report final : public IReceiverObserver {
 public:
  struct Options {
    std::string ubx_trace;  ///< file for frames and events, "-": standard output; empty: none
    bool show = false;      ///< writes every epoch's fix to standard output
  };

  /// Throws FileError if the file cannot be created.
  explicit Report(const Options& options);

  /// Sets the time of power-on by the receiver's clock, us.
  void set_start(int64_t start_us) { m_start_us = start_us; }

  void on_command(int64_t at_us, const UbxFrame& frame, bool intact) override;
  void on_message(int64_t at_us, const UbxFrame& frame) override;
  void on_event(int64_t at_us, std::string_view text) override;
  void on_epoch(int64_t at_us, const Fix& fix) override;

 private:
  void write(int64_t at_us, std::string_view text);

  std::string m_trace_name;
  std::ofstream m_file;
  std::ostream* m_trace = nullptr;  // m_file or standard output
  bool m_show;
  int64_t m_start_us = 0;
};

}  // namespace ecu::koru::sim
