#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/tap/live/Text.h"

struct screen;  // of ncurses

namespace ecu::koru::tap::live {

enum class Key : uint8_t {
  none,
  quit,
  pause,
  redraw,
  next_page,
  previous_page,
  page,
  up,
  down,
  page_up,
  page_down,
  top,
  other
};

/// A key press; `page`, of Key::page, counts from 0.
struct KeyPress {
  Key key = Key::none;
  size_t page = 0;
};

/// The terminal of the program's standard input and output, under ncurses from open() to close(). Only the
/// changed characters are sent. Colours are used unless NO_COLOR is set. For one thread.
class Terminal {
 public:
  Terminal() = default;
  ~Terminal() { close(); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// Returns why there can be no screen: standard output is no terminal, or its type is unknown; else empty.
  [[nodiscard]] static std::string problem();

  /// Takes the screen over. Returns false if that fails.
  [[nodiscard]] bool open();
  /// Gives the screen back.
  void close();
  [[nodiscard]] bool is_open() const { return m_screen != nullptr; }

  [[nodiscard]] size_t width() const;
  [[nodiscard]] size_t height() const;
  /// Takes over the terminal's new size.
  void resize();
  /// Shows the rows, of which each must be as wide as the terminal.
  void draw(const Rows& rows);
  /// Sends the whole screen again with the next draw(), for one that others have written to.
  void forget();
  /// Stops the process, as Ctrl-Z asks for, with the screen given back; returns when it goes on.
  void stop_process();
  /// Returns the next key press, if there is one.
  [[nodiscard]] KeyPress key();

 private:
  screen* m_screen = nullptr;
  bool m_colors = false;
  bool m_blocks = false;  // the terminal can show block characters
};

}  // namespace ecu::koru::tap::live
