#pragma once

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "support/Process.h"

namespace test {

/// A pseudo-terminal for a program that runs with TERM=ansi, and the screen that a person would see. For one
/// thread, which must call shows() or text() so that the program can write.
class PtyScreen : Unique {
 public:
  PtyScreen() {
    if (grantpt(m_master) != 0 || unlockpt(m_master) != 0) throw std::runtime_error("no pseudo-terminal");
    resize(80, 24);
  }
  ~PtyScreen() { hang_up(); }

  /// Returns a command line that runs a program with this as its terminal and with these variables.
  [[nodiscard]] Words launched(const Words& argv, const Words& variables = {}) const {
    Words words{"sh",  "-c",       R"(exec setsid --ctty "$@" <"$0" >"$0" 2>&1)", ptsname(m_master),
                "env", "TERM=ansi"};
    words.insert(words.end(), variables.begin(), variables.end());
    words.insert(words.end(), argv.begin(), argv.end());
    return words;
  }
  /// Waits until the text is on the screen, or no longer is.
  bool shows(std::string_view part, bool wanted = true, int timeout_ms = 20'000) {
    return eventually([&] { return (text().find(part) != std::string::npos) == wanted; }, timeout_ms);
  }
  void type(std::string_view keys) const { std::ignore = ::write(m_master, keys.data(), keys.size()); }
  void resize(size_t width, size_t height) {
    m_cells.assign(height, std::vector<std::string>(width, " "));
    const winsize size{static_cast<uint16_t>(height), static_cast<uint16_t>(width), 0, 0};
    ioctl(m_master, TIOCSWINSZ, &size);
  }
  void hang_up() {
    if (m_master >= 0) close(m_master);
    m_master = -1;
  }

  /// Returns the rows, each with a line feed.
  std::string text() {
    read_all();
    std::string out;
    for (const auto& row : m_cells) {
      for (const auto& cell : row) out += cell;
      out += '\n';
    }
    return out;
  }
  [[nodiscard]] bool was_colored() const { return m_colored; }
  /// Returns the sequences that it does not know; each is a fault of this class.
  [[nodiscard]] const std::string& unknown() const { return m_unknown; }
  /// Returns true if the terminal echoes and hands over whole lines, as a shell needs it.
  [[nodiscard]] bool is_as_before() const {
    termios attributes{};
    return tcgetattr(m_master, &attributes) == 0 && (attributes.c_lflag & ICANON) != 0 &&
           (attributes.c_lflag & ECHO) != 0;
  }

 private:
  void read_all() {
    char piece[4096];
    for (pollfd state{m_master, POLLIN, 0}; poll(&state, 1, 0) > 0 && (state.revents & POLLIN) != 0;) {
      const ssize_t count = read(m_master, piece, sizeof piece);
      if (count <= 0) return;
      for (ssize_t i = 0; i < count; ++i) take(piece[i]);
    }
  }
  void take(char c) {
    if (!m_sequence.empty()) {
      m_sequence += c;
      const bool ends = m_sequence.size() == 2 ? c != '[' : c >= '@' && c <= '~';
      if (ends) act(c), m_sequence.clear();
    } else if (c == '\x1B') {
      m_sequence = c;
    } else if (c == '\r') {
      m_x = 0;
    } else if (c == '\n') {
      m_y = std::min(m_y + 1, m_cells.size() - 1);
    } else if (c == '\b') {
      m_x -= m_x > 0;
    } else if ((c & 0xC0) == 0x80) {
      (m_x > 0 ? cell(m_y, m_x - 1) : cell(m_y - 1, m_cells[0].size() - 1)) += c;  // the rest of a character
    } else if (c >= ' ' || c < 0) {
      put(m_last = c);
    }
  }
  /// The cursor goes on in the next row at once, as TERM=ansi has it.
  void put(const std::string& character) {
    cell(m_y, m_x) = character;
    if (++m_x < m_cells[0].size()) return;
    m_x = 0;
    m_y = std::min(m_y + 1, m_cells.size() - 1);
  }
  std::string& cell(size_t y, size_t x) {
    static std::string outside;
    return y < m_cells.size() && x < m_cells[y].size() ? m_cells[y][x] : outside;
  }
  void blank(size_t y, size_t from, size_t to) {
    for (size_t x = from; x < to; ++x) cell(y, x) = " ";
  }
  /// Carries out a sequence with its final character. Positions count from 1.
  void act(char name) {
    const size_t width = m_cells[0].size();
    const size_t first =
        std::strtoul(m_sequence.c_str() + std::min<size_t>(2, m_sequence.size()), nullptr, 10);
    const size_t semicolon = m_sequence.find(';');
    const size_t second =
        semicolon == std::string::npos ? 1 : std::strtoul(m_sequence.c_str() + semicolon + 1, nullptr, 10);
    const size_t count = std::max<size_t>(first, 1);
    const auto row = [this] { return m_cells.begin() + static_cast<std::ptrdiff_t>(m_y); };
    switch (name) {
      case 'H':
        m_y = count - 1, m_x = std::max<size_t>(second, 1) - 1;
        break;
      case 'G':
        m_x = count - 1;
        break;
      case 'd':
        m_y = count - 1;
        break;
      case 'A':
        m_y -= std::min(count, m_y);
        break;
      case 'B':
        m_y += count;
        break;
      case 'C':
        m_x += count;
        break;
      case 'D':
        m_x -= std::min(count, m_x);
        break;
      case 'I':
        m_x = (m_x / 8 + count) * 8;
        break;
      case 'Z':
        m_x = (m_x + 7) / 8 * 8 - 8 * count;
        break;
      case 'X':
        blank(m_y, m_x, m_x + count);
        break;
      case 'K':
        first == 1 ? blank(m_y, 0, m_x + 1) : blank(m_y, m_x, width);
        break;
      case 'J':
        for (size_t y = first == 2 ? 0 : m_y; y < m_cells.size(); ++y)
          blank(y, y == m_y && first != 2 ? m_x : 0, width);
        break;
      case 'b':
        for (size_t i = 0; i < count; ++i) put(m_last);
        break;
      case '@':
        row()->insert(row()->begin() + static_cast<std::ptrdiff_t>(m_x), count, " "), row()->resize(width);
        break;
      case 'P':
        row()->erase(row()->begin() + static_cast<std::ptrdiff_t>(m_x),
                     row()->begin() + static_cast<std::ptrdiff_t>(m_x + count));
        row()->resize(width, " ");
        break;
      case 'L':
        m_cells.insert(row(), count, std::vector<std::string>(width, " ")),
            m_cells.resize(m_cells.size() - count);
        break;
      case 'M': {
        const size_t height = m_cells.size();
        m_cells.erase(row(), row() + static_cast<std::ptrdiff_t>(count));
        m_cells.resize(height, std::vector<std::string>(width, " "));
        break;
      }
      case 'm':
        m_colored |= m_sequence.find("[3") != std::string::npos || m_sequence.find(";3") != std::string::npos;
        break;
      case 'h':
      case 'l':
        break;
      default:
        m_unknown += m_sequence.substr(1) + " ";
    }
  }

  int m_master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  std::vector<std::vector<std::string>> m_cells;
  size_t m_x = 0;
  size_t m_y = 0;
  std::string m_last;
  std::string m_sequence;  // what has come of it
  bool m_colored = false;
  std::string m_unknown;
};

}  // namespace test
