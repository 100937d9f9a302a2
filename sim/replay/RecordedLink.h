#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "sim/gnss/LinkRecording.h"
#include "sim/replay/Differences.h"
#include "sim/replay/SentComparison.h"
#include "sim/replay/VirtualTerminal.h"

namespace ecu::koru::sim {

/// Reads files of which each goes on where the one before was full. Throws FileError if they do not, or one
/// cannot be used. The note names the file.
[[nodiscard]] LinkRecording load_link_recordings(const std::vector<std::string>& files);

/// The receiver's end of a recorded link: at each recorded instant the bytes of one read become readable, and
/// each read ends where it ended then. The device can be opened when the service opened it. If the recording
/// closes the port and the service does not, the device went away. Reports what the service does otherwise.
///
/// Times count from the start of the service, or from the first event of a recording that goes on where
/// another one was full. Because nothing takes time here but waiting, the service is a little earlier than it
/// was. What it does with the port therefore lasts until the recorded time, which keeps the two in step.
class RecordedLink final : public LinkEnd {
 public:
  /// Both must outlive it.
  RecordedLink(const LinkRecording& recording, Differences& differences);

  /// Returns when the recording begins: after the service has connected to its broker.
  [[nodiscard]] int64_t begin_us() const { return m_begin_us; }
  /// Returns when the service turned to the device, as far as the recording says.
  [[nodiscard]] int64_t first_try_us() const;
  /// Returns when the recording ends. A close at the very end was the end of the service.
  [[nodiscard]] int64_t end_us() const;
  /// The service has ended.
  void finish();

  // LinkEnd
  void advance_to(int64_t now_us) override;
  [[nodiscard]] int64_t next_byte_us() const override;
  [[nodiscard]] size_t available() const override { return m_pieces.empty() ? 0 : m_pieces.front().size(); }
  size_t read(std::span<uint8_t> out) override;
  void write(std::span<const uint8_t> bytes) override;
  void set_host_baud(unsigned baud) override;
  [[nodiscard]] bool is_terminal() const override { return m_baud != 0; }
  [[nodiscard]] int open_error() override;
  void set_open(bool open) override;
  [[nodiscard]] int64_t done_us() const override { return m_done_us; }
  [[nodiscard]] bool is_gone() const override { return m_gone_us <= m_now_us; }

 private:
  using Event = LinkRecording::Event;

  [[nodiscard]] int64_t time_of(const Event& event) const { return m_begin_us + event.at_us; }
  [[nodiscard]] bool has_next() const { return m_next < m_count; }
  [[nodiscard]] const Event& next() const { return m_events[m_next]; }
  /// Returns true if the recording does not say what happened then.
  [[nodiscard]] bool is_over() const { return m_now_us > time_of(m_events.back()); }
  [[nodiscard]] int64_t next_event_us() const;
  [[nodiscard]] size_t next_opening() const;
  [[nodiscard]] bool is_next(LinkRecording::Kind kind) const;
  void happens(const Event& event);
  void receive(const Event& event);

  const LinkRecording& m_recording;
  const std::vector<Event>& m_events;  // the recording's
  const int64_t m_begin_us;
  Differences& m_differences;
  SentComparison m_sent;
  size_t m_count;     // of the events to replay
  size_t m_next = 0;  // the first that has not happened
  int64_t m_now_us = 0;
  int64_t m_done_us = 0;
  int64_t m_gone_us = INT64_MAX;  // the device goes away unless the service closes the port before
  bool m_was_open;                // in the recording
  bool m_is_open = false;
  bool m_is_early_closed = false;         // by the service, while it is open in the recording
  bool m_loss_reported = false;           // since the last opening or close
  unsigned m_baud = 0;                    // in the recording
  std::deque<std::string_view> m_pieces;  // to read, each in reads of its own
};

}  // namespace ecu::koru::sim
