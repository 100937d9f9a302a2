#include "bench/Feed.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <span>
#include <stdexcept>

namespace bench {

namespace {

using namespace ecu::koru;
using namespace std::chrono_literals;
using std::chrono::microseconds;

constexpr auto PAUSE = 500ms;  // after the start of an epoch; by then all bytes have arrived
constexpr size_t PIECE = 16;   // bytes; at this level a UART's buffer calls its driver

/// Returns how long the line takes for so many bytes.
microseconds duration(size_t bytes) {
  constexpr size_t bits = 10;
  return microseconds(bytes * bits * 1'000'000 / Feed::BAUD);
}

sim::ReceiverOptions receiverOptions() {
  const auto utc = std::chrono::system_clock::now().time_since_epoch();
  sim::ReceiverOptions options;
  options.baud = Feed::BAUD;
  options.utc_start_us = microseconds(std::chrono::floor<std::chrono::seconds>(utc)).count();
  return options;
}

}  // namespace

Feed::Feed(size_t terminals) : m_receiver(receiverOptions()) {
  namespace fs = std::filesystem;
  for (size_t i = 0; i < terminals; ++i) {
    const auto& terminal = m_terminals.emplace_back(BAUD);
    // The program may have given up its rights when it opens the terminal.
    fs::permissions(terminal.path(), static_cast<fs::perms>(0666));
  }
}

bool Feed::isHeld() const {
  return std::ranges::all_of(m_terminals, &sim::Pty::held);
}

void Feed::play(Feeding feeding, int seconds) {
  while (m_start + m_second <= Clock::now()) ++m_second;
  for (int i = 0; i < seconds; ++i, ++m_second) playEpoch(feeding);
}

void Feed::playEpoch(Feeding feeding) {
  const auto begin = m_start + m_second;
  const std::string bytes = epoch();
  const size_t piece = feeding == Feeding::PIECES ? PIECE : bytes.size();
  const size_t end = feeding == Feeding::SILENT ? 0 : bytes.size();
  for (size_t at = 0; at < end; at += piece) {
    const size_t count = std::min(piece, end - at);
    restUntil(begin + duration(at + count));
    write(std::string_view(bytes).substr(at, count));
  }
  restUntil(begin + PAUSE);
  std::array<uint8_t, 4096> from_host{};
  for (auto& terminal : m_terminals) (void)terminal.read(from_host);
}

std::string Feed::epoch() {
  (void)bytesUntil(m_second - PAUSE);  // skipped epochs
  return bytesUntil(m_second + PAUSE);
}

std::string Feed::bytesUntil(microseconds since_start) {
  m_receiver.advance_to(since_start.count());
  std::string bytes(m_receiver.available(), '\0');
  (void)m_receiver.read({reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()});
  return bytes;
}

void Feed::write(std::string_view bytes) {
  for (auto& terminal : m_terminals) {
    if (terminal.write({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}) < bytes.size())
      throw std::runtime_error("nobody reads " + terminal.path());
  }
}

}  // namespace bench
