#pragma once

#include <fstream>
#include <iosfwd>
#include <string>

#include "sim/gnss/Receiver.h"

namespace ecu::koru::sim {

/// Writes what the receiver does as lines for people, each flushed at once.
///
///     +12.345678 host> CFG-PRT poll 06 00 len 0
///     +12.387344 <recv ACK-ACK of CFG-PRT 05 01 len 2: 06 00
///     +12.400000 -- power fails
///     2026-05-01T10:00:01.000Z 48.3050052 10.9050028 4.340 km/h 20.00 deg 480.0 m accuracy 2.2 m, 18
///     satellites
///
/// Seconds since power-on; of a frame's last byte. The truth is not rounded before it is written.
class Report final : public IReceiverObserver {
 public:
  struct Options {
    std::string ubx_trace;  ///< file, "-" is standard output; empty: no frames
    bool show = false;      ///< the truth of every epoch on standard output
  };

  /// Throws FileError when the file cannot be made.
  explicit Report(const Options& options);

  /// The times that the receiver tells are those of a clock that was then at power-on.
  void set_start(int64_t start_us) { m_start_us = start_us; }

  void on_command(int64_t at_us, const UbxFrame& frame, bool intact) override;
  void on_message(int64_t at_us, const UbxFrame& frame) override;
  void on_event(int64_t at_us, std::string_view text) override;
  void on_epoch(int64_t at_us, const Fix& fix) override;

 private:
  void write(int64_t at_us, std::string_view text);

  std::ofstream m_file;
  std::ostream* m_trace = nullptr;  // m_file or standard output
  bool m_show;
  int64_t m_start_us = 0;
};

}  // namespace ecu::koru::sim
