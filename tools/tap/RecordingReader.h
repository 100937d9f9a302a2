#pragma once

#include <poll.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/tap/Recording.h"

namespace ecu::koru::tap {

/// Reads a recording line by line, from a file or a pipe, without waiting and with one line in memory. For
/// one thread.
class RecordingReader {
 public:
  enum class State {
    message,  ///< here is the next message
    waiting,  ///< the pipe holds no further line yet
    end       ///< nothing more can be read
  };

  /// `file`: "-" is standard input.
  explicit RecordingReader(std::string file) : m_file(file == "-" ? "/dev/stdin" : std::move(file)) {}
  ~RecordingReader();
  RecordingReader(const RecordingReader&) = delete;
  RecordingReader& operator=(const RecordingReader&) = delete;

  /// Returns false if the file cannot be opened; problems() then says why.
  [[nodiscard]] bool open();
  /// Reads up to the next message. Skips lines that are broken; problems() lists them. Without a header
  /// nothing is read.
  [[nodiscard]] State next(RecordedMessage& out);
  /// Starts again at the first message. Returns false if that is not possible with this file (a pipe).
  [[nodiscard]] bool rewind();

  /// Returns the header's times, once the header has been read.
  [[nodiscard]] const std::optional<Moment>& beginning() const { return m_beginning; }
  /// Returns the descriptor to wait for while next() returns State::waiting.
  [[nodiscard]] int fd() const { return m_fd; }

  /// Returns the faults that make the run fail, each as "drive.rec line 7: ..."; of many broken lines the
  /// first ones and a count.
  [[nodiscard]] std::vector<std::string> problems() const;
  /// Returns that the last line was cut in its middle, as a crash of the recording program leaves it; empty
  /// if it was not.
  [[nodiscard]] const std::string& note() const { return m_note; }

 private:
  enum class Line { whole, cut, too_long, waiting, end };
  Line next_line();
  [[nodiscard]] bool fill();
  bool take_line(Line kind, RecordedMessage& out);
  void add_problem(const std::string& what);

  const std::string m_file;
  int m_fd = -1;
  std::string m_buffer;  // read, and not yet used from m_used on
  size_t m_used = 0;
  std::string m_line;       // the newest line, without its line feed
  bool m_skipping = false;  // in a line that is too long
  bool m_at_end = false;
  size_t m_number = 0;  // of the newest line, from 1
  std::optional<Moment> m_beginning;
  std::vector<std::string> m_problems;
  size_t m_further_problems = 0;
  bool m_second_pass = false;  // its faults are known already
  std::string m_note;
};

}  // namespace ecu::koru::tap
