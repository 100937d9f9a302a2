#include "tools/tap/live/Terminal.h"

#include <curses.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <term.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>

// The macros of ncurses' headers have the names of functions.
#undef lines
#undef columns

namespace ecu::koru::tap::live {

namespace {

constexpr const char* BLOCK = "\xE2\x96\x88";  // U+2588

struct StyleRow {
  Style style;
  attr_t attributes;
  short color;  // of ncurses; -1: the terminal's own
};
constexpr StyleRow STYLES[] = {
    {Style::plain, A_NORMAL, -1},
    {Style::title, A_REVERSE, -1},
    {Style::alert, A_REVERSE | A_BOLD, COLOR_RED},
    {Style::selected, A_REVERSE, -1},
    {Style::label, A_NORMAL, COLOR_CYAN},
    {Style::dim, A_DIM, -1},
    {Style::good, A_NORMAL, COLOR_GREEN},
    {Style::warn, A_NORMAL, COLOR_YELLOW},
    {Style::bad, A_BOLD, COLOR_RED},
};

struct KeyRow {
  int code;
  KeyPress press;
};
constexpr KeyRow KEYS[] = {
    {'q', {Key::quit}},
    {'Q', {Key::quit}},
    {' ', {Key::pause}},
    {'p', {Key::pause}},
    {'\t', {Key::next_page}},
    {KEY_RIGHT, {Key::next_page}},
    {KEY_LEFT, {Key::previous_page}},
    {KEY_BTAB, {Key::previous_page}},
    {KEY_UP, {Key::up}},
    {'k', {Key::up}},
    {KEY_DOWN, {Key::down}},
    {'j', {Key::down}},
    {KEY_PPAGE, {Key::page_up}},
    {KEY_NPAGE, {Key::page_down}},
    {KEY_HOME, {Key::top}},
    {'L' - '@', {Key::redraw}},
};

bool wants_color() {
  const char* const no_color = std::getenv("NO_COLOR");
  return (no_color == nullptr || *no_color == '\0') && has_colors();
}

short pair_of(Style style) {
  return static_cast<short>(static_cast<short>(style) + 1);
}

bool start_colors() {
  if (start_color() != OK) return false;
  const bool own_background = use_default_colors() == OK;
  for (const auto& row : STYLES) {
    if (row.color >= 0)
      init_pair(pair_of(row.style), row.color, own_background ? short{-1} : short{COLOR_BLACK});
  }
  return true;
}

}  // namespace

std::string Terminal::problem() {
  if (::isatty(STDOUT_FILENO) == 0) return "--live needs a terminal as standard output";
  const char* const type = std::getenv("TERM");
  int error = 0;
  const bool found = setupterm(type, STDOUT_FILENO, &error) == OK;
  const bool good = found && cursor_address != nullptr;
  if (found) del_curterm(cur_term);
  if (good) return {};
  return std::string("--live cannot use a terminal of the type '") + (type == nullptr ? "" : type) +
         "' (TERM)";
}

bool Terminal::open() {
  static_cast<void>(std::setlocale(LC_CTYPE, ""));
  m_blocks = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  m_screen = newterm(nullptr, stdout, stdin);
  if (m_screen == nullptr) return false;
  m_colors = wants_color() && start_colors();
  cbreak();
  noecho();
  nonl();
  curs_set(0);
  set_escdelay(25);
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  leaveok(stdscr, TRUE);
  return true;
}

void Terminal::close() {
  if (m_screen == nullptr) return;
  endwin();
  delscreen(m_screen);
  m_screen = nullptr;
}

size_t Terminal::width() const {
  return static_cast<size_t>(std::max(getmaxx(stdscr), 0));
}

size_t Terminal::height() const {
  return static_cast<size_t>(std::max(getmaxy(stdscr), 0));
}

void Terminal::resize() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0)
    resizeterm(size.ws_row, size.ws_col);
}

void Terminal::draw(const Rows& rows) {
  erase();
  for (size_t y = 0; y < rows.size(); ++y) {
    move(static_cast<int>(y), 0);
    for (const auto& span : rows[y].spans()) {
      const StyleRow& style = STYLES[static_cast<size_t>(span.style)];
      attr_set(style.attributes, m_colors && style.color >= 0 ? pair_of(span.style) : short{0}, nullptr);
      if (span.bar && m_blocks) {
        for (size_t i = 0; i < span.text.size(); ++i) addstr(BLOCK);
      } else {
        addstr(span.text.c_str());
      }
    }
  }
  refresh();
}

void Terminal::forget() {
  clearok(curscr, TRUE);
}

void Terminal::stop_process() {
  endwin();
  static_cast<void>(std::raise(SIGSTOP));
  forget();
}

KeyPress Terminal::key() {
  const int code = getch();
  if (code >= '1' && code <= '9') return {Key::page, static_cast<size_t>(code - '1')};
  const auto* const row = std::ranges::find(KEYS, code, &KeyRow::code);
  return row != std::end(KEYS) ? row->press : KeyPress{code == ERR ? Key::none : Key::other};
}

}  // namespace ecu::koru::tap::live
