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
  transport.on_connection_change([this] { tell(); });
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
  tell();
}

void Live::tell() {
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
  m_drawn_ns = 0;  // at once
  const size_t page = static_cast<size_t>(m_view.page);
  const auto show = [this](size_t number) {
    if (number >= PAGES.size()) return;
    m_view.page = PAGES[number];
    m_view.scroll = 0;
  };
  const auto scroll = [this](size_t up, size_t down) {
    m_view.scroll = m_view.scroll + down - std::min(up, m_view.scroll + down);
  };
  switch (press.key) {
    case Key::quit:
      return finish();
    case Key::pause: {
      const std::lock_guard lock(m_mutex);
      m_view.paused = !m_view.paused;
      m_view.now = now();
      m_paused = m_view.paused ? std::optional(m_model) : std::nullopt;
      if (m_player != nullptr) m_player->hold(m_view.paused);
      return;
    }
    case Key::redraw:
      m_drawn.clear();
      return m_terminal.forget();
    case Key::page:
      return show(press.page);
    case Key::next_page:
      return show((page + 1) % PAGES.size());
    case Key::previous_page:
      return show((page + PAGES.size() - 1) % PAGES.size());
    case Key::up:
      return scroll(1, 0);
    case Key::down:
      return scroll(0, 1);
    case Key::page_up:
      return scroll(m_view.height / 2, 0);
    case Key::page_down:
      return scroll(0, m_view.height / 2);
    case Key::top:
      return scroll(m_view.scroll, 0);
    case Key::none:
    case Key::other:
      return;
  }
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
