#pragma once

namespace ecu::koru::gpspub {

/// Decides what is sent next to configure the receiver (the init list, then the complex steps) and when
/// another baud rate is tried. It knows nothing of clocks, inputs or frames.
///
/// One command is in flight at a time. It ends with an answer, after three NAKs, or when its answer periods
/// are over: four with a confirmed port, five without. At each further baud rate the first of the five is
/// already over when the port opens.
class CommandSequence {
 public:
  static constexpr unsigned INIT_COMMANDS = 22;
  static constexpr unsigned COMPLEX_STEPS = 10;

  enum class State {
    HUNTING,        ///< The port is not confirmed: polls go out at one baud rate after the other.
    CHANGING_RATE,  ///< The same, while the command that sets the receiver's rate is in flight.
    INIT_LIST,
    COMPLEX,
    DONE,  ///< Nothing is sent until a restart.
    OFF    ///< Nothing is ever sent.
  };

  enum class Action {
    NOTHING,
    RESEND,              ///< Send the command in flight again.
    SEND,                ///< Send the command at the position.
    FINISH,              ///< The sequence is complete.
    NEXT_RATE,           ///< Nothing came in: try the next baud rate.
    NEXT_RATE_AND_RESET  ///< Every 19th time: the same, and pulse the reset line.
  };

  [[nodiscard]] State state() const;
  [[nodiscard]] bool hasCommandToSend() const;
  [[nodiscard]] bool isInitialised() const { return m_initialised; }
  [[nodiscard]] bool isStopped() const { return m_stopped; }
  [[nodiscard]] bool isPortConfirmed() const { return m_port_confirmed; }
  [[nodiscard]] bool isAtFirstCommand() const;
  /// Returns INIT_COMMANDS during the complex steps.
  [[nodiscard]] unsigned initCommandIdx() const { return m_init_command_idx; }
  [[nodiscard]] unsigned complexCommandIdx() const { return m_complex_command_idx; }
  [[nodiscard]] unsigned periodsOver() const { return m_timeout_counter; }
  [[nodiscard]] unsigned ratesTried() const { return m_hw_timeout_counter; }

  // -- Events

  /// An answer advances the sequence. Returns SEND, FINISH or NOTHING.
  [[nodiscard]] Action answered();
  /// A NAK came. Returns RESEND, or the result of answered() at the third one.
  [[nodiscard]] Action refused();
  /// An answer period ended. `lines` counts the items framed so far. Without `count_hw_timeouts` the reset
  /// line is not pulsed.
  [[nodiscard]] Action periodOver(int lines, bool count_hw_timeouts);
  /// A command outside the sequence is in flight from now on; `is_rate` if it sets the baud rate.
  void otherCommand(bool is_rate);
  /// The receiver was seen at the configured rate.
  void confirmPort();
  /// The receiver's rate is no longer known.
  void unconfirmPort() { m_port_confirmed = false; }
  /// Items framed up to now say nothing about the rate.
  void forgetLines(int lines) { m_lines_received = lines; }
  /// Begins the sequence anew: the first command is in flight.
  void restart();
  void switchOff() { m_initialised = m_stopped = true; }

 private:
  enum class InFlight { SEQUENCE, RATE, OTHER };
  [[nodiscard]] Action handleTimeout(int lines, bool count_hw_timeouts);
  /// NAKs and periods of the previous command do not count for this one.
  void begin(InFlight what);

  bool m_initialised = false;
  bool m_stopped = false;
  bool m_port_confirmed = false;  // also decides the number of answer periods (m_max_timeouts)
  InFlight m_in_flight = InFlight::SEQUENCE;
  unsigned m_init_command_idx = 0;
  unsigned m_complex_command_idx = 0;
  unsigned m_nak_counter = 0;
  unsigned m_timeout_counter = 0;
  unsigned m_hw_timeout_counter = 0;
  int m_lines_received = 0;
};

}  // namespace ecu::koru::gpspub
