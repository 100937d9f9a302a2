#include "sim/gnss/Console.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

namespace ecu::koru::sim {
namespace {

struct Command {
  std::string_view text;
  void (*carry_out)(Receiver& receiver, int64_t now_us);
};
constexpr std::array<Command, 7> COMMANDS{
    {{"power-cycle", [](Receiver& r, int64_t now_us) { r.power_cycle(now_us); }},
     {"reset", [](Receiver& r, int64_t now_us) { r.hardware_reset(now_us); }},
     {"antenna ok", [](Receiver& r, int64_t) { r.set_antenna(AntennaState::ok); }},
     {"antenna open", [](Receiver& r, int64_t) { r.set_antenna(AntennaState::open); }},
     {"antenna short", [](Receiver& r, int64_t) { r.set_antenna(AntennaState::short_circuit); }},
     {"mute on", [](Receiver& r, int64_t) { r.set_mute(true); }},
     {"mute off", [](Receiver& r, int64_t) { r.set_mute(false); }}}};

struct ShareCommand {
  std::string_view name;  // the share follows
  double FaultOptions::*fault;
};
constexpr std::array<ShareCommand, 2> SHARE_COMMANDS{
    {{"drop ", &FaultOptions::drop}, {"corrupt ", &FaultOptions::corrupt}}};

std::string printable(std::string_view text) {
  std::string result;
  for (const char c : text) result += c >= 0x20 && c < 0x7F ? c : '?';
  return result;
}

std::optional<std::string> set_share(const ShareCommand& command, std::string_view line, Receiver& receiver,
                                     int64_t now_us) {
  try {
    const double share = parse_share(line.substr(command.name.size()));
    receiver.advance_to(now_us);
    receiver.set_fault(command.fault, share);
    return std::nullopt;
  } catch (const std::invalid_argument& error) {
    return "command \"" + printable(line) + "\": " + error.what();
  }
}

}  // namespace

std::optional<std::string> carry_out(std::string_view line, Receiver& receiver, int64_t now_us) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.empty()) return std::nullopt;
  for (const Command& command : COMMANDS) {
    if (command.text != line) continue;
    receiver.advance_to(now_us);
    command.carry_out(receiver, now_us);
    return std::nullopt;
  }
  for (const ShareCommand& command : SHARE_COMMANDS)
    if (line.starts_with(command.name)) return set_share(command, line, receiver, now_us);
  std::string known;
  for (const Command& command : COMMANDS) known += std::string(command.text) + ", ";
  for (const ShareCommand& command : SHARE_COMMANDS) known += std::string(command.name) + "P, ";
  known.resize(known.size() - 2);
  return "unknown command \"" + printable(line) + "\"; there are " + known;
}

Console::Console() {
  if (fcntl(STDIN_FILENO, F_GETFD) >= 0) m_fd = STDIN_FILENO;
  (void)std::signal(SIGTTIN, SIG_IGN);
}

std::vector<std::string> Console::read_lines() {
  constexpr size_t LONGEST = 80;
  std::array<char, 1024> block;
  const ssize_t count = read(m_fd, block.data(), block.size());
  if (count < 0 && errno == EINTR) return {};
  if (count <= 0) m_fd = -1;
  std::vector<std::string> lines;
  for (ssize_t i = 0; i < count; ++i) {
    const char c = block.at(static_cast<size_t>(i));
    if (c == '\n') {
      lines.push_back(std::move(m_rest));
      m_rest.clear();
    } else if (m_rest.size() < LONGEST) {
      m_rest += c;
    }
  }
  return lines;
}

}  // namespace ecu::koru::sim
