#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "sim/gnss/Faults.h"
#include "sim/gnss/Fix.h"
#include "sim/gnss/Line.h"
#include "sim/gnss/ReceiverOptions.h"

namespace ecu::koru::sim {

class DriveSource;
class IBurstSource;

/// Counts since power-on. A sentence counts when its burst begins, a byte when it has arrived at the host's
/// port.
struct Statistics {
  uint64_t epochs = 0;         ///< silent ones included
  uint64_t silent_epochs = 0;  ///< within a silence, nothing was sent
  uint64_t sentences_sent = 0;
  uint64_t sentences_overrun = 0;  ///< not sent: the line cannot carry the rate
  uint64_t sentences_dropped = 0;  ///< not sent: fault
  uint64_t sentences_corrupted = 0;
  uint64_t sentences_split = 0;
  uint64_t bytes_sent = 0;
  uint64_t bytes_lost = 0;  ///< of those: nobody held the other end or nobody read
  uint64_t bytes_from_host = 0;
};

/// A receiver and the serial line to its host, without clock and terminal. One thread at a time may use it.
class Receiver {
 public:
  /// Throws std::invalid_argument when an option is out of its range.
  explicit Receiver(const ReceiverOptions& options);
  ~Receiver();

  /// Time is microseconds of the caller's clock and never goes back. Produces everything whose transmission
  /// has finished by then.
  void advance_to(int64_t now_us);
  /// No byte arrives at the host before that time; it is after the time advanced to. The time is exact unless
  /// faults, or a host at another speed, keep that byte away. INT64_MAX: never any more.
  [[nodiscard]] int64_t next_byte_us() const;
  /// When the last of the bytes that come without a gap has arrived; INT64_MAX when the line is idle.
  [[nodiscard]] int64_t run_end_us() const;
  /// A recording that is not repeated has been sent to its last byte.
  [[nodiscard]] bool finished() const { return next_byte_us() == INT64_MAX; }

  /// Bytes that have arrived and were not read yet; at most 64 KiB are kept, what comes then is lost.
  [[nodiscard]] size_t available() const { return m_line.available(); }
  /// Takes up to out.size() of them and returns how many.
  size_t read(std::span<uint8_t> out) { return m_line.read(out); }
  /// Bytes from the host. They are counted; this receiver answers no commands.
  void write(std::span<const uint8_t> bytes) { m_statistics.bytes_from_host += bytes.size(); }

  /// The host's line speed. When it is not the receiver's own, the host reads what its UART would make of the
  /// line; at 0 it reads nothing.
  void set_host_baud(unsigned baud) { m_line.set_host_baud(baud); }
  /// While false nobody holds the other end: what is sent is lost. True at first.
  void set_open(bool open) { m_line.set_open(open); }

  /// The truth of any time in a drive, rounded nowhere; of a recording nothing is known.
  [[nodiscard]] std::optional<Fix> truth_at(int64_t utc_us) const;
  /// UTC of the latest epoch whose burst has begun, us since 1970; 0 before the first one and in a recording.
  [[nodiscard]] int64_t latest_epoch_us() const { return m_latest_epoch_us; }
  [[nodiscard]] Statistics statistics() const;

 private:
  /// When the next burst begins; that of a recording waits until the line is free. INT64_MAX: never.
  [[nodiscard]] int64_t next_burst_us() const;
  void begin_burst();
  void send_sentence(std::string& sentence, int64_t start_ns, int64_t deadline_ns);

  const ReceiverOptions m_options;
  std::unique_ptr<IBurstSource> m_source;
  const DriveSource* m_drive = nullptr;  // m_source, unless that is a recording
  Faults m_faults;
  Line m_line;
  Statistics m_statistics;
  int64_t m_latest_epoch_us = 0;
};

}  // namespace ecu::koru::sim
