#pragma once

namespace ecu::koru::gpspub {

/// The course of the receiver's configuration: the init list, then the complex steps. It decides what is sent
/// next and when another baud rate is tried; it knows neither clock, input nor frames.
///
/// One command is in flight at a time. It leaves by an answer, by three NAKs, or when its answer periods are
/// over: four with a confirmed port, five without.
class CommandSequence {
 public:
  static constexpr unsigned INIT_COMMANDS = 22;
  static constexpr unsigned COMPLEX_STEPS = 10;

  enum class State {
    HUNTING,        ///< The port is not confirmed: polls go out at one baud rate after the other.
    CHANGING_RATE,  ///< The same while the command that gives the receiver its rate is in flight.
    INIT_LIST,
    COMPLEX,
    DONE,  ///< Nothing is sent until a restart.
    OFF    ///< Nothing is ever sent.
  };

  enum class Action {
    NOTHING,
    RESEND,              ///< Send the command in flight again.
    SEND,                ///< Send the command at the position.
    FINISH,              ///< The sequence is through.
    NEXT_RATE,           ///< Nothing came in: try the next baud rate.
    NEXT_RATE_AND_RESET  ///< The same, and pulse the reset line: every 19th time.
  };

  [[nodiscard]] State state() const;
  [[nodiscard]] bool hasCommandToSend() const;
  [[nodiscard]] bool isInitialised() const { return m_initialised; }
  [[nodiscard]] bool isStopped() const { return m_stopped; }
  [[nodiscard]] bool isPortConfirmed() const { return m_port_confirmed; }
  /// Returns true while the first command has not left.
  [[nodiscard]] bool isAtFirstCommand() const;
  /// INIT_COMMANDS once all of them have left.
  [[nodiscard]] unsigned initCommandIdx() const { return m_init_command_idx; }
  [[nodiscard]] unsigned complexCommandIdx() const { return m_complex_command_idx; }
  [[nodiscard]] unsigned periodsOver() const { return m_timeout_counter; }
  [[nodiscard]] unsigned ratesTried() const { return m_hw_timeout_counter; }

  // -- Events

  /// An answer that advances. Returns SEND, FINISH or NOTHING.
  [[nodiscard]] Action answered();
  /// A NAK. Returns RESEND, or at the third what answered() returns.
  [[nodiscard]] Action refused();
  /// An answer period ended. `lines` counts the items framed so far. Without `count_hw_timeouts`
  /// the reset line is not pulsed.
  [[nodiscard]] Action periodOver(int lines, bool count_hw_timeouts);
  /// Another command than those of the sequence is in flight from now on, perhaps that of the baud rate.
  void otherCommand(bool is_rate);
  /// The receiver was seen at the configured rate.
  void confirmPort();
  /// Its rate is not known (any more).
  void unconfirmPort() { m_port_confirmed = false; }
  /// Items framed up to now say nothing about the rate.
  void forgetLines(int lines) { m_lines_received = lines; }
  /// The first command is in flight.
  void restart();
  void switchOff() { m_initialised = m_stopped = true; }

 private:
  enum class InFlight { SEQUENCE, RATE, OTHER };
  [[nodiscard]] Action handleTimeout(int lines, bool count_hw_timeouts);
  /// NAKs and periods of the command before do not count for this one.
  void begin(InFlight what);

  bool m_initialised = false;
  bool m_stopped = false;
  bool m_port_confirmed = false;
  InFlight m_in_flight = InFlight::SEQUENCE;
  unsigned m_init_command_idx = 0;
  unsigned m_complex_command_idx = 0;
  unsigned m_nak_counter = 0;
  unsigned m_timeout_counter = 0;
  unsigned m_hw_timeout_counter = 0;
  int m_lines_received = 0;
};

}  // namespace ecu::koru::gpspub
