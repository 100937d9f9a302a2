#include "tools/tap/RecordingReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/base/Logging.h"

namespace ecu::koru::tap {

namespace {

using logging::text;

constexpr size_t MAX_LINE = 4U << 20;  // the largest payload is 1 MiB, two digits a byte
constexpr size_t READ_AT_ONCE = 64U << 10;
constexpr size_t MAX_PROBLEMS = 10;

}  // namespace

RecordingReader::~RecordingReader() {
  if (m_fd >= 0) ::close(m_fd);
}

bool RecordingReader::open() {
  m_fd = ::open(m_file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (m_fd < 0) m_problems.push_back(text("cannot read ", m_file, ": ", std::strerror(errno)));
  return m_fd >= 0;
}

bool RecordingReader::rewind() {
  if (::lseek(m_fd, 0, SEEK_SET) != 0) return false;
  m_buffer.clear();
  m_used = m_number = 0;
  m_at_end = m_skipping = false;
  m_beginning.reset();
  m_second_pass = true;
  return true;
}

RecordingReader::State RecordingReader::next(RecordedMessage& out) {
  while (true) {
    const Line kind = next_line();
    if (kind == Line::waiting) return State::waiting;
    if (kind == Line::end) {
      if (m_number == 0 && m_problems.empty()) m_problems.push_back(m_file + " is empty, not a recording");
      return State::end;
    }
    ++m_number;
    if (take_line(kind, out)) return State::message;
    if (m_beginning) continue;
    m_at_end = true;
    m_buffer.clear();
    return State::end;
  }
}

/// Returns true if the line is a message.
bool RecordingReader::take_line(Line kind, RecordedMessage& out) {
  if (kind == Line::too_long) {
    add_problem(text("the line is longer than ", MAX_LINE, " bytes"));
    return false;
  }
  if (!m_beginning) {
    auto header = read_header_line(m_line);
    if (const auto* const problem = std::get_if<std::string>(&header)) {
      add_problem(*problem);
    } else {
      m_beginning = std::get<Moment>(header);
    }
    return false;
  }
  auto message = read_message_line(m_line);
  if (auto* const good = std::get_if<RecordedMessage>(&message)) {
    out = std::move(*good);
    return true;
  }
  if (kind == Line::cut) {
    m_note = text(m_file, " ends in the middle of line ", m_number, "; it was read up to there");
  } else {
    add_problem(std::get<std::string>(message));
  }
  return false;
}

/// Reads a line into m_line.
RecordingReader::Line RecordingReader::next_line() {
  while (true) {
    const size_t end = m_buffer.find('\n', m_used);
    if (end != std::string::npos) {
      const bool too_long = std::exchange(m_skipping, false) || end - m_used > MAX_LINE;
      m_line.assign(m_buffer, m_used, too_long ? 0 : end - m_used);
      m_used = end + 1;
      return too_long ? Line::too_long : Line::whole;
    }
    m_buffer.erase(0, m_used);
    m_used = 0;
    if (m_buffer.size() > MAX_LINE) {
      m_skipping = true;
      m_buffer.clear();
    }
    if (m_at_end) {
      if (m_buffer.empty() && !m_skipping) return Line::end;
      m_line = std::exchange(m_buffer, {});
      return std::exchange(m_skipping, false) ? Line::too_long : Line::cut;
    }
    if (!fill()) return Line::waiting;
  }
}

/// Reads more, or notices the end. Returns false if nothing is there yet.
bool RecordingReader::fill() {
  std::array<char, READ_AT_ONCE> piece;
  const ssize_t count = ::read(m_fd, piece.data(), piece.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (count < 0) m_problems.push_back(text("cannot read ", m_file, ": ", std::strerror(errno)));
  if (count <= 0) m_at_end = true;
  if (count > 0) m_buffer.append(piece.data(), static_cast<size_t>(count));
  return true;
}

void RecordingReader::add_problem(const std::string& what) {
  if (m_second_pass) return;
  if (m_problems.size() < MAX_PROBLEMS) {
    m_problems.push_back(text(m_file, " line ", m_number, ": ", what));
  } else {
    ++m_further_problems;
  }
}

std::vector<std::string> RecordingReader::problems() const {
  auto out = m_problems;
  if (m_further_problems > 0) out.push_back(text(m_file, ": ", m_further_problems, " further broken lines"));
  return out;
}

}  // namespace ecu::koru::tap
