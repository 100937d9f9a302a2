#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/gnss/HostComparison.h"
#include "sim/gnss/LinkRecording.h"

namespace ecu::koru::sim {

/// Plays the receiver's part of a recorded link. It uses neither a clock nor a terminal; times are us of the
/// caller's clock.
///
/// The receiver's pieces come at their recorded times after the host has opened the port. Three things keep
/// the two in step, because a host never runs exactly as it did:
///
/// - At each recorded opening the playback waits until the port is open.
/// - If the host closes the port up to a second before it did then, the pieces of that time are left out; if
///   it closes the port at another time, the playback stands still until it opens it again.
/// - At each recorded frame from the host the playback waits for up to 0.3 s until the frame comes. Otherwise
///   an answer could come before its command. It does not wait while an earlier frame is missing.
class LinkPlayback {
 public:
  /// Something for people: a difference, or a rate of the host that is not the recorded one.
  using Say = std::function<void(const std::string&)>;
  struct Statistics {
    uint64_t pieces = 0, bytes = 0;  ///< played
    uint64_t bytes_left_out = 0;     ///< because the host had closed the port
    uint64_t openings = 0;
    uint64_t rate_changes = 0;
    uint64_t other_rates = 0;  ///< recorded rates at which the host had another one
    int64_t played_us = 0;
    std::string first_difference;  ///< empty: none
  };

  /// `recording` must outlive the playback.
  LinkPlayback(const LinkRecording& recording, Say say);
  ~LinkPlayback() = default;
  LinkPlayback(const LinkPlayback&) = delete;
  LinkPlayback& operator=(const LinkPlayback&) = delete;

  /// Lets time pass. `held`: the host has the port open, at `host_baud`. Returns the bytes that are due.
  [[nodiscard]] std::string advance_to(int64_t now_us, bool held, unsigned host_baud);
  /// Takes bytes from the host. After the end of the recording only the frames that are still missing count:
  /// the recorded host stopped there.
  void hear(std::string_view bytes);
  /// Returns when advance_to() is to be called next unless the host does something.
  [[nodiscard]] int64_t next_us() const;
  [[nodiscard]] bool finished() const { return m_next == m_recording.events.size(); }
  /// Counts the frames that the host should have sent by now and has not.
  void finish();

  [[nodiscard]] const Statistics& statistics() const { return m_statistics; }
  [[nodiscard]] const HostComparison& comparison() const { return m_comparison; }

 private:
  using Event = LinkRecording::Event;

  [[nodiscard]] bool heard_all() const { return m_comparison.next() == m_frames.back(); }
  [[nodiscard]] HostComparison make_comparison();
  void note_difference(const HostComparison::Difference& difference);
  void pass_time(int64_t now_us, bool held);
  void skip_to_close();
  [[nodiscard]] bool is_due(const Event& event, bool held);
  void play(const Event& event, unsigned host_baud, std::string& out);
  void check_rate(unsigned host_baud);

  const LinkRecording& m_recording;
  Say m_say;
  std::vector<size_t> m_frames;  // for each event from the host: how many frames are complete with it
  HostComparison m_comparison;
  Statistics m_statistics;
  size_t m_next = 0;        // event
  int64_t m_played_us = 0;  // in the recording
  int64_t m_now_us = 0;
  int64_t m_waited_us = 0;       // for the frame of the next event
  unsigned m_rate_to_check = 0;  // with the next piece, when the host has certainly set it; 0: none
  bool m_begun = false;
  bool m_is_open = true;  // in the recording; one that begins with a rate was open
  bool m_stands = true;   // the playback waits for the host
};

}  // namespace ecu::koru::sim
