#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "sim/gnss/Control.h"
#include "sim/gnss/Faults.h"
#include "sim/gnss/Fix.h"
#include "sim/gnss/HostLine.h"
#include "sim/gnss/Line.h"
#include "sim/gnss/ReceiverOptions.h"
#include "sim/gnss/UbxFrame.h"

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
  uint64_t frames_received = 0;   ///< commands with a right checksum
  uint64_t frames_corrupted = 0;  ///< with a wrong one
  uint64_t frames_sent = 0;       ///< UBX messages to the host
  uint64_t frames_lost = 0;       ///< not sent, or a command not done: fault, or a buffer is full
  uint64_t power_ups = 1;         ///< the first one, power cycles, resets and the ends of standby
};

/// Hears what a receiver does, in the order in which it happens, from within the receiver's calls. Times are
/// us of the caller's clock.
class IReceiverObserver {
 public:
  virtual ~IReceiverObserver() = default;
  /// A frame of the host has come in; `intact`: its checksum is right.
  virtual void on_command(int64_t /*at_us*/, const UbxFrame& /*frame*/, bool /*intact*/) {}
  /// The last byte of a frame has left for the host.
  virtual void on_message(int64_t /*at_us*/, const UbxFrame& /*frame*/) {}
  /// Something else has happened: power, line speed, navigation. For people.
  virtual void on_event(int64_t /*at_us*/, std::string_view /*text*/) {}
  /// The burst of an epoch begins; the fix is what it tells, before it is rounded.
  virtual void on_epoch(int64_t /*at_us*/, const Fix& /*fix*/) {}
};

/// A receiver and the serial line to its host, without clock and terminal. One thread at a time may use it.
/// With the option `spi` the host clocks the bytes instead, and the line that tells "ready" is there.
///
/// It sends sentences and UBX messages and carries out UBX commands as a receiver of the eighth generation
/// does, with one UART or SPI: CFG-PRT, CFG-MSG, CFG-RATE, CFG-GNSS, CFG-ANT, CFG-NAV5, CFG-NMEA, CFG-RXM,
/// CFG-CFG, CFG-RST, RXM-PMREQ, and polls of MON-VER, MON-HW, MON-GNSS and NAV-TIMEUTC. Other commands of the
/// class CFG are refused, what has another class is ignored. CFG-NAV5, CFG-RXM, and of CFG-NMEA all but the
/// version, are kept and have no effect.
class Receiver {
 public:
  /// Throws std::invalid_argument when an option is out of its range.
  explicit Receiver(const ReceiverOptions& options);
  ~Receiver();

  /// Time is microseconds of the caller's clock and never goes back. Does everything that happens until then
  /// and produces everything whose transmission has finished by then.
  void advance_to(int64_t now_us);
  /// No byte arrives at the host before that time; it is after the time advanced to. The time is exact unless
  /// faults, commands on their way, or a host at another speed, keep that byte away. INT64_MAX: never, as far
  /// as is known.
  [[nodiscard]] int64_t next_byte_us() const;
  /// When the last of the bytes that come without a gap has arrived; INT64_MAX when the line is idle.
  [[nodiscard]] int64_t run_end_us() const;
  /// A recording that is not repeated has been sent to its last byte.
  [[nodiscard]] bool finished() const { return m_options.recording && next_byte_us() == INT64_MAX; }

  /// Bytes that have arrived and were not read yet; at most 64 KiB are kept, what comes then is lost.
  [[nodiscard]] size_t available() const { return m_line.available(); }
  /// Takes up to out.size() of them and returns how many.
  size_t read(std::span<uint8_t> out) { return m_line.read(out); }
  /// Bytes from the host, on their way from the time advanced to on and at the host's speed. An answer comes
  /// a few ms behind the command's last byte, or behind what is on the line then.
  void write(std::span<const uint8_t> bytes);

  /// On SPI, instead of read() and write(): one full-duplex transfer at the time advanced to, both spans as
  /// long as each other. Messages lie ready as a whole; behind them the receiver says 0xFF. It keeps 4 KiB,
  /// messages that find no room are not sent. Asleep it hears nothing.
  void transfer(std::span<const uint8_t> from_host, std::span<uint8_t> to_host);
  /// On SPI, the level of the TX-ready line (true: high): active from the threshold on until the host has
  /// fetched everything. High while it is switched off.
  [[nodiscard]] bool tx_ready_level();

  /// The host's line speed. When it is not the receiver's own, each reads what its UART would make of the
  /// line; at 0 the host reads nothing and what it writes is lost.
  void set_host_baud(unsigned baud);
  /// While false nobody holds the other end: what is sent is lost. True at first.
  void set_open(bool open) { m_line.set_open(open); }

  /// The power fails at that time, not before the time advanced to, for a moment: what is on the line is cut
  /// off, unsaved settings are gone (with the fault reset_to also those of the options), and the receiver
  /// runs again 0.3 s later. Nothing for a recording; so are the next three.
  void power_cycle(int64_t now_us);
  /// A pulse on the reset line: the same, but what is battery-backed stays.
  void hardware_reset(int64_t now_us);
  /// What becomes of the antenna, from the time advanced to on.
  void set_antenna(AntennaState state);
  /// Whether commands are heard, from the time advanced to on.
  void set_mute(bool mute) { m_mute = mute; }

  /// The receiver's own line speed.
  [[nodiscard]] unsigned baud() const { return m_line.baud(); }
  /// False while it starts and in standby.
  [[nodiscard]] bool running() const { return m_running; }
  /// False also between CFG-RST's GNSS stop and start.
  [[nodiscard]] bool navigating() const { return m_running && m_navigating; }
  /// Its settings; unsaved changes count.
  [[nodiscard]] const Settings& settings() const { return m_control.settings(); }

  /// The truth of any time in a drive, rounded nowhere, whether or not the receiver runs; of a recording
  /// nothing is known.
  [[nodiscard]] std::optional<Fix> truth_at(int64_t utc_us) const;
  /// UTC of the latest epoch whose burst has begun, us since 1970; 0 before the first one and in a recording.
  [[nodiscard]] int64_t latest_epoch_us() const { return m_latest_epoch_us; }
  [[nodiscard]] Statistics statistics() const;

  /// Nobody: nullptr. It must outlive the receiver or be taken away before.
  void set_observer(IReceiverObserver* observer) { m_observer = observer; }

 private:
  struct Answer {
    int64_t due_us;
    Reply reply;
  };
  struct Sending {
    int64_t end_ns;
    UbxFrame frame;
  };

  /// When the next of all these happens; INT64_MAX: never.
  [[nodiscard]] int64_t next_event_us() const;
  [[nodiscard]] int64_t next_incident_us() const {
    return m_incidents.empty() ? INT64_MAX : m_incidents.begin()->first;
  }
  [[nodiscard]] int64_t next_command_byte_us() const;
  [[nodiscard]] int64_t next_answer_us() const;
  /// When the next burst begins; that of a recording waits until the line is free.
  [[nodiscard]] int64_t next_burst_us() const;
  void carry_out_next();
  void move_line_to(int64_t now_us);

  void plan_incidents();
  void hear();
  void hear(std::string_view bytes);
  void update_tx_ready();
  void obey(const UbxFramer::Found& command);
  void send_answer();
  void tell(const std::string& event) const;
  void send_answer_frame(const UbxFrame& frame);
  void follow_settings();
  void take_effect(const Reply& reply);
  void change_speed();

  void stop(int64_t start_again_us);
  void start();
  void fail_power();

  void prepare_drive();
  void begin_burst();
  void send_sentence(std::string& sentence, int64_t start_ns, int64_t deadline_ns);
  void send_periodic(UbxId id, int64_t start_ns, int64_t deadline_ns);
  void send_frame(const UbxFrame& frame, int64_t start_ns);
  [[nodiscard]] bool due(size_t periodic_index) const;
  [[nodiscard]] bool is_room_for(size_t bytes) const;
  [[nodiscard]] bool fits(size_t bytes, int64_t start_ns, int64_t deadline_ns) const;

  const ReceiverOptions m_options;
  Control m_control;
  std::unique_ptr<IBurstSource> m_source;
  DriveSource* m_drive = nullptr;  // m_source, unless that is a recording
  EpochGrid m_grid;
  Faults m_faults;
  Line m_line;
  HostLine m_from_host;
  unsigned m_host_baud;
  UbxFramer m_framer;
  int64_t m_framer_us = 0;  // when it got its latest byte
  IReceiverObserver* m_observer = nullptr;
  Statistics m_statistics;

  int64_t m_now_us;
  std::multimap<int64_t, std::function<void()>> m_incidents;  // faults that have their time
  std::deque<Answer> m_answers;                               // by time
  std::deque<Sending> m_sending;                              // frames on the line
  int64_t m_new_speed_us = INT64_MAX;                         // the line has drained by then
  int64_t m_start_us = INT64_MAX;                             // not running now, but then

  bool m_running = true;
  bool m_navigating = true;
  bool m_woken_by_host = false;  // from standby
  bool m_mute;
  bool m_tx_ready = false;
  uint64_t m_solutions = 0;  // since the start
  int64_t m_latest_epoch_us = 0;
};

}  // namespace ecu::koru::sim
