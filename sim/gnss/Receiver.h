#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
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

/// Counts since power-on. A sentence counts as soon as its burst begins, a byte as soon as it has arrived at
/// the host's port.
struct Statistics {
  uint64_t epochs = 0;         ///< silent ones included
  uint64_t silent_epochs = 0;  ///< nothing was sent because of the fault "silence"
  uint64_t sentences_sent = 0;
  uint64_t sentences_overrun = 0;  ///< not sent because the line is too slow for the rate
  uint64_t sentences_dropped = 0;  ///< not sent because of a fault
  uint64_t sentences_corrupted = 0;
  uint64_t sentences_split = 0;
  uint64_t bytes_sent = 0;
  uint64_t bytes_lost = 0;  ///< of these, bytes that nobody received or read
  uint64_t bytes_from_host = 0;
  uint64_t frames_received = 0;   ///< commands with a correct checksum
  uint64_t frames_corrupted = 0;  ///< commands with a wrong checksum
  uint64_t frames_sent = 0;       ///< UBX messages to the host
  uint64_t frames_lost = 0;       ///< not sent or not obeyed: fault or full buffer
  uint64_t power_ups = 1;         ///< the first one, power cycles, resets and wake-ups from standby
};

/// Is notified of a receiver's actions in their order, from within calls of the receiver. Times are us of
/// the caller's clock.
class IReceiverObserver {
 public:
  virtual ~IReceiverObserver() = default;
  /// A frame of the host has arrived. `intact`: its checksum is correct.
  virtual void on_command(int64_t /*at_us*/, const UbxFrame& /*frame*/, bool /*intact*/) {}
  /// The last byte of a frame has left for the host.
  virtual void on_message(int64_t /*at_us*/, const UbxFrame& /*frame*/) {}
  /// Something else has happened to power, line speed, navigation or antenna. The text is for people.
  virtual void on_event(int64_t /*at_us*/, std::string_view /*text*/) {}
  /// The burst of an epoch begins. `fix` is its content before rounding.
  virtual void on_epoch(int64_t /*at_us*/, const Fix& /*fix*/) {}
};

/// A receiver and the serial line to its host, without a clock or a terminal. Only one thread may use it at a
/// time. With the option `spi`, the host clocks the bytes instead, and there is a TX-ready line.
///
/// It sends sentences and UBX messages and carries out UBX commands like a receiver of the eighth generation
/// with one UART or SPI: CFG-PRT, CFG-MSG, CFG-RATE, CFG-GNSS, CFG-ANT, CFG-NAV5, CFG-NMEA, CFG-RXM, CFG-CFG,
/// CFG-RST, RXM-PMREQ, and polls of MON-VER, MON-HW, MON-GNSS and NAV-TIMEUTC. It refuses other commands of
/// class CFG and ignores other classes. CFG-NAV5, CFG-RXM, and CFG-NMEA except its version, are stored but
/// have no effect.
class Receiver {
 public:
  /// Throws std::invalid_argument if an option is out of range.
  explicit Receiver(const ReceiverOptions& options);
  ~Receiver();

  /// Advances the present time to `now_us`, us of the caller's clock; it never goes back. Carries out
  /// everything that happens until then, and delivers every byte whose transmission has ended.
  void advance_to(int64_t now_us);
  /// Returns a time after the present one, before which no byte arrives at the host. It is exact
  /// unless faults, commands on their way, or a host at another speed stop that byte. INT64_MAX: no
  /// byte is expected.
  [[nodiscard]] int64_t next_byte_us() const;
  /// Returns when the last byte before the next gap will have arrived; INT64_MAX if the line is idle.
  [[nodiscard]] int64_t run_end_us() const;
  /// Returns true after the last byte of a recording that is not repeated.
  [[nodiscard]] bool finished() const { return m_options.recording && next_byte_us() == INT64_MAX; }

  /// Returns how many bytes have arrived and were not read yet. At most 64 KiB are kept; further
  /// bytes are lost.
  [[nodiscard]] size_t available() const { return m_line.available(); }
  /// Reads up to out.size() of them and returns how many.
  size_t read(std::span<uint8_t> out) { return m_line.read(out); }
  /// Sends bytes from the host, from the present time on and at the host's speed. An answer starts a few ms
  /// after the command's last byte, or after the bytes that are then on the line.
  void write(std::span<const uint8_t> bytes);

  /// Replaces read() and write() on SPI: one full-duplex transfer at the present time. Both spans have the
  /// same length. Only whole messages become ready; after them the receiver sends 0xFF. It keeps 4 KiB;
  /// messages that do not fit are not sent. In standby it hears nothing.
  void transfer(std::span<const uint8_t> from_host, std::span<uint8_t> to_host);
  /// Returns the level of the TX-ready line on SPI (true: high). The line is active from the threshold on
  /// until the host has fetched everything. It is high while it is switched off.
  [[nodiscard]] bool tx_ready_level();

  /// Sets the host's line speed. If it differs from the receiver's, each side reads garbage, as a UART would.
  /// At 0 the host reads nothing and its own bytes are lost.
  void set_host_baud(unsigned baud) { m_line.set_host_baud(baud); }
  /// While false, nobody has the other end open, and bytes to the host are lost. Initially true.
  void set_open(bool open) { m_line.set_open(open); }

  /// Interrupts the power at that time, which must not be before the present time: the bytes on the line are
  /// cut off, unsaved settings are lost (with the fault reset_to also those of the options), and the receiver
  /// runs again 0.3 s later. This and the next three have no effect on a recording.
  void power_cycle(int64_t now_us);
  /// Pulses the reset line. This does the same, but battery-backed settings stay.
  void hardware_reset(int64_t now_us);
  /// Changes the antenna's state from the present time on.
  void set_antenna(AntennaState state);
  /// While true, commands are ignored. Takes effect at the present time.
  void set_mute(bool mute) { m_mute = mute; }

  /// Changes the share of a fault of sentences from the next burst on, also in a recording.
  void set_fault(double FaultOptions::*fault, double share) { m_faults.set_share(fault, share); }

  [[nodiscard]] unsigned baud() const { return m_line.baud(); }
  /// Returns the settings in use, with unsaved changes.
  [[nodiscard]] const Settings& settings() const { return m_control.settings(); }

  [[nodiscard]] Statistics statistics() const;

  /// nullptr: none. It must outlive the receiver or be removed before.
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

  /// Returns the time of the earliest of the events below; INT64_MAX: never.
  [[nodiscard]] int64_t next_event_us() const;
  [[nodiscard]] int64_t next_incident_us() const {
    return m_incidents.empty() ? INT64_MAX : m_incidents.begin()->first;
  }
  [[nodiscard]] int64_t next_command_byte_us() const;
  [[nodiscard]] int64_t next_answer_us() const;
  /// Returns when the next burst begins. In a recording it waits until the line is free.
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
  UbxFramer m_framer;
  int64_t m_framer_us = 0;  // when bytes last arrived
  IReceiverObserver* m_observer = nullptr;
  Statistics m_statistics;

  int64_t m_now_us;
  std::multimap<int64_t, std::function<void()>> m_incidents;  // faults at a given time
  std::deque<Answer> m_answers;                               // ordered by time
  std::deque<Sending> m_sending;                              // frames on the line
  int64_t m_new_speed_us = INT64_MAX;                         // when the line has drained
  int64_t m_start_us = INT64_MAX;                             // when a stopped receiver runs again

  bool m_running = true;         // false while it starts and in standby
  bool m_navigating = true;      // false between CFG-RST's GNSS stop and start
  bool m_woken_by_host = false;  // from standby
  bool m_mute;
  bool m_tx_ready = false;
  uint64_t m_solutions = 0;  // since the start
};

}  // namespace ecu::koru::sim
