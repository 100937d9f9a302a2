#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <vector>

#include "tools/tap/RecordingReader.h"

namespace ecu::koru::tap {

/// Plays a recording: hands each message on when its time has come. For one thread.
class Player {
 public:
  struct Options {
    double speed = 0;   ///< relative to the recording; 0: as fast as possible
    bool loop = false;  ///< again and again, each time one second after the last message
  };
  struct Listener {
    std::function<void(const Moment&)> begin;  ///< before the first message, once
    std::function<void(const RecordedMessage&)> take;
  };

  /// `reader` is open and outlives the player.
  Player(RecordingReader& reader, Options options, Listener listener)
      : m_reader(reader), m_options(options), m_listener(std::move(listener)) {}

  /// Hands on what is due, for at most about 20 ms. Returns false after the last message.
  [[nodiscard]] bool play();
  /// Adds what must be waited for before the next play(), besides due_ns().
  void add_waits(std::vector<pollfd>& waits) const;
  /// Returns when play() is to be called next: steady clock, or INT64_MAX.
  [[nodiscard]] int64_t due_ns() const;

  /// Stops its clock, or lets it go on.
  void hold(bool on);
  /// Returns the time in the recording: it passes at the speed of playing, and ends with the last message.
  [[nodiscard]] Moment now() const;
  /// Returns true after the last message.
  [[nodiscard]] bool over() const { return m_over; }

 private:
  static constexpr int64_t NEVER = std::numeric_limits<int64_t>::max();

  [[nodiscard]] bool read_next();
  [[nodiscard]] int64_t due_of(uint64_t boot_ns) const;

  RecordingReader& m_reader;
  const Options m_options;
  const Listener m_listener;
  RecordedMessage m_next;
  bool m_has_next = false;
  bool m_waiting = false;  // for the other end of a pipe
  bool m_begun = false;
  bool m_over = false;
  std::optional<int64_t> m_held_ns;  // steady clock at which its own stopped
  Moment m_newest;                   // the latest arrival that was handed on
  int64_t m_start_ns = 0;            // steady clock at the first message of this pass
  uint64_t m_first_boot_ns = 0;      // arrival of that message
  uint64_t m_newest_boot_ns = 0;     // the latest arrival of this pass
  bool m_pass_begun = false;
  bool m_has_messages = false;
};

}  // namespace ecu::koru::tap
