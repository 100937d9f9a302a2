#include "tools/tap/live/Live.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "tools/tap/Decode.h"
#include "tools/tap/Player.h"

namespace ecu::koru::tap::live {

namespace {

constexpr int64_t SHORTEST_NS = 200'000'000;   // between two draws
constexpr int64_t LONGEST_NS = 1'000'000'000;  // the ages go on without messages

/// Blocks the signals of the terminal and returns a descriptor that reads them.
int terminal_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGWINCH);
  sigaddset(&signals, SIGTSTP);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  static_cast<void>(std::signal(SIGHUP, SIG_IGN));  // the terminal's end is seen by poll()
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// Records on the screen would destroy it, unless standard error is elsewhere.
void log_records(bool on) {
  if (::isatty(STDERR_FILENO) != 0) logging::configure_logging(on ? "WARNING" : "EMERG");
}

}  // namespace

Live::~Live() {
  if (m_signals >= 0) ::close(m_signals);
}

void Live::watch(com::ITransportClient& transport, std::string broker) {
  m_transport = &transport;
  m_view.source = std::move(broker);
  transport.on_connection_change([this] { mark_changed(); });
}

void Live::follow(Player& player, const std::string& name) {
  m_player = &player;
  m_view.recorded = true;
  m_view.source = name.substr(name.rfind('/') + 1);
}

bool Live::open() {
  m_problem = Terminal::problem();
  if (!m_problem.empty()) return false;
  m_has_keys = ::isatty(STDIN_FILENO) != 0;
  m_signals = terminal_signals();
  return true;
}

void Live::take(const Arrival& arrival) {
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  {
    const std::lock_guard lock(m_mutex);
    m_model.take(arrival, decoded);
  }
  mark_changed();
}

void Live::mark_changed() {
  m_news = true;
  m_changed.raise();
}

void Live::close() {
  if (!m_terminal.is_open()) return;
  m_terminal.close();
  m_guard.reset();
  log_records(true);
}

void Live::add_waits(std::vector<pollfd>& waits) const {
  if (m_has_keys) waits.push_back({STDIN_FILENO, POLLIN, 0});
  waits.push_back({m_signals, POLLIN, 0});
  if (!m_has_changed) waits.push_back({m_changed.fd(), POLLIN, 0});
}

int64_t Live::due_ns() const {
  return m_drawn_ns + (m_has_changed ? SHORTEST_NS : LONGEST_NS);
}

void Live::serve() {
  if (!m_terminal.is_open()) start();
  if (!m_terminal.is_open()) return;
  serve_signals();
  serve_keys();
  m_changed.clear();
  if (m_news.exchange(false)) m_has_changed = true;
  if (time_source().steady_ns() >= due_ns()) draw();
}

void Live::start() {
  log_records(false);
  m_guard.emplace();
  if (m_terminal.open()) return;
  log_records(true);
  m_problem = "the screen cannot be set up";
  finish();
}

void Live::serve_signals() {
  signalfd_siginfo signal{};
  while (::read(m_signals, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
    if (signal.ssi_signo == SIGTSTP) m_terminal.stop_process();
    m_terminal.resize();
    m_drawn_ns = 0;
    m_drawn.clear();
  }
}

void Live::serve_keys() {
  if (!m_has_keys) return;
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (::poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
    finish();
    return;
  }
  for (KeyPress press = m_terminal.key(); press.key != Key::none; press = m_terminal.key()) act(press);
}

void Live::act(const KeyPress& press) {
  struct ActionRow {
    Key key;
    void (*act)(Live& live, size_t page);
  };
  static constexpr ActionRow ACTIONS[] = {
      {Key::quit, [](Live& live, size_t) { live.finish(); }},
      {Key::pause, [](Live& live, size_t) { live.pause_or_go_on(); }},
      {Key::redraw, [](Live& live, size_t) { live.draw_all_again(); }},
      {Key::page, [](Live& live, size_t page) { live.show(page); }},
      {Key::next_page, [](Live& live, size_t) { live.turn(1); }},
      {Key::previous_page, [](Live& live, size_t) { live.turn(PAGES.size() - 1); }},
      {Key::up, [](Live& live, size_t) { live.scroll_up(1); }},
      {Key::down, [](Live& live, size_t) { live.scroll_down(1); }},
      {Key::page_up, [](Live& live, size_t) { live.scroll_up(live.m_view.height / 2); }},
      {Key::page_down, [](Live& live, size_t) { live.scroll_down(live.m_view.height / 2); }},
      {Key::top, [](Live& live, size_t) { live.scroll_up(live.m_view.scroll); }},
  };
  m_drawn_ns = 0;  // at once
  const auto* const row = std::ranges::find(ACTIONS, press.key, &ActionRow::key);
  if (row != std::end(ACTIONS)) row->act(*this, press.page);
}

void Live::pause_or_go_on() {
  const std::lock_guard lock(m_mutex);
  m_view.paused = !m_view.paused;
  m_view.now = now();
  m_paused = m_view.paused ? std::optional(m_model) : std::nullopt;
  if (m_player != nullptr) m_player->hold(m_view.paused);
}

void Live::draw_all_again() {
  m_drawn.clear();
  m_terminal.forget();
}

void Live::show(size_t page) {
  if (page >= PAGES.size()) return;
  m_view.page = PAGES[page];
  m_view.scroll = 0;
}

void Live::turn(size_t pages) {
  show((static_cast<size_t>(m_view.page) + pages) % PAGES.size());
}

void Live::scroll_up(size_t rows) {
  m_view.scroll -= std::min(rows, m_view.scroll);
}

void Live::scroll_down(size_t rows) {
  m_view.scroll += rows;  // draw() stops at the end of the page
}

Moment Live::now() const {
  if (m_player != nullptr) return m_player->now();
  return {.wall_us = time_source().wall_ns() / 1000,
          .boot_ns = static_cast<uint64_t>(time_source().boot_ns())};
}

void Live::draw() {
  m_view.width = m_terminal.width();
  m_view.height = m_terminal.height();
  m_view.connected = m_transport == nullptr || m_transport->is_connected();
  m_view.over = m_player != nullptr && m_player->over();
  if (!m_view.paused) m_view.now = now();
  Rows rows;
  {
    const std::lock_guard lock(m_mutex);
    m_view.scroll = std::min(m_view.scroll, rows_beyond(shown(), m_view));
    rows = layout(shown(), m_view);
  }
  m_has_changed = false;
  m_drawn_ns = time_source().steady_ns();
  if (rows == m_drawn) return;
  m_terminal.draw(rows);
  m_drawn = std::move(rows);
}

}  // namespace ecu::koru::tap::live
