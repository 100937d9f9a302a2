#include "tools/tap/Run.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>

#include "platform/base/Time.h"
#include "tools/tap/Player.h"
#include "tools/tap/Replay.h"

namespace ecu::koru::tap {

namespace {

bool outlast_recording(const Outputs& outputs) {
  return std::any_of(outputs.begin(), outputs.end(), [](const auto& o) { return o->outlasts_recording(); });
}

/// Serves the outputs, and plays the recording if there is one, until one of the outputs takes no more, the
/// recording or the time is over, the reader of standard output goes away or a signal comes.
void serve_until_end(const Outputs& outputs, double seconds, Player* player = nullptr) {
  constexpr int64_t LONGEST_MS = 60'000;
  const tool::StopSignals signals;
  const int64_t now_ns = time_source().steady_ns();
  const int64_t end_ns = seconds > 0 ? now_ns + static_cast<int64_t>(seconds * 1e9) : Output::NEVER;
  while (true) {
    std::vector<pollfd> waits = {{signals.fd(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    for (const auto& output : outputs) waits.push_back({output->finished().fd(), POLLIN, 0});
    const size_t ends = waits.size();
    int64_t due_ns = player != nullptr ? std::min(end_ns, player->due_ns()) : end_ns;
    if (player != nullptr) player->add_waits(waits);
    for (const auto& output : outputs) {
      output->add_waits(waits);
      due_ns = std::min(due_ns, output->due_ns());
    }
    const int64_t left_ns = std::max<int64_t>(due_ns - time_source().steady_ns(), 0);
    const int64_t left_ms = left_ns / 1'000'000 + (left_ns % 1'000'000 != 0 ? 1 : 0);
    if (poll(waits.data(), waits.size(), static_cast<int>(std::min(left_ms, LONGEST_MS))) < 0 &&
        errno != EINTR)
      return;
    for (size_t i = 0; i < ends; ++i) {
      if (waits[i].revents != 0) return;
    }
    if (time_source().steady_ns() >= end_ns) return;
    if (player != nullptr && !player->play() && !outlast_recording(outputs)) return;
    for (const auto& output : outputs) output->serve();
  }
}

/// Closes the outputs. Reports what failed on standard error, which may have been a screen until then, and
/// returns false in that case.
bool close(const Outputs& outputs) {
  for (const auto& output : outputs) {
    if (output->end()) output->close();
  }
  bool good = true;
  for (const auto& output : outputs) {
    if (const auto problem = output->problem(); !problem.empty()) {
      std::cerr << "satnav-tap: " << problem << '\n';
      good = false;
    }
  }
  return good;
}

bool subscribe(com::ITransportClient& transport, const Outputs& outputs) {
  for (const auto& output : outputs) {
    for (const auto& topic : output->topics()) {
      if (transport.subscribe(topic, output, 0)) continue;
      std::cerr << "satnav-tap: cannot subscribe to " << topic << '\n';
      return false;
    }
  }
  return true;
}

bool open(const Outputs& outputs) {
  return std::all_of(outputs.begin(), outputs.end(), [](const auto& output) { return output->open(); });
}

void start(const Outputs& outputs, const Moment& beginning, bool live) {
  for (const auto& output : outputs) output->start(beginning, live);
}

/// Connects, and starts the outputs before the first message. Without a broker they do not start.
bool connect(tool::BusConnection& bus, const Outputs& outputs) {
  std::vector<std::unique_lock<std::mutex>> held;
  for (const auto& output : outputs) held.push_back(output->hold());
  const auto now_ns = static_cast<uint64_t>(time_source().boot_ns());
  if (!bus.open()) return false;
  start(outputs, {.wall_us = wall_us_of(now_ns), .boot_ns = now_ns}, true);
  return true;
}

/// Reports on standard error what could not be read. Returns false if that was a fault.
bool report_faults(const RecordingReader& reader) {
  const auto problems = reader.problems();
  for (const auto& problem : problems) std::cerr << "satnav-tap: " << problem << '\n';
  if (!reader.note().empty()) std::cerr << "satnav-tap: " << reader.note() << '\n';
  return problems.empty();
}

}  // namespace

bool run_bus(tool::BusConnection& bus, const Outputs& outputs, double seconds) {
  if (!open(outputs) || !subscribe(bus.transport(), outputs)) {
    close(outputs);
    return false;
  }
  if (!connect(bus, outputs)) return false;
  serve_until_end(outputs, seconds);
  return close(outputs);
}

bool run_recording(const RecordingOptions& options, const Outputs& outputs, double seconds) {
  RecordingReader reader(options.read);
  if (!reader.open()) return report_faults(reader);
  if (!open(outputs)) {
    close(outputs);
    return false;
  }
  const bool pace =
      std::any_of(outputs.begin(), outputs.end(), [](const auto& o) { return o->needs_pace(); });
  Player player(reader, {.speed = options.speed.value_or(pace ? 1 : 0)},
                {.begin = [&](const auto& beginning) { start(outputs, beginning, false); },
                 .take =
                     [&](const auto& recorded) {
                       for (const auto& output : outputs) output->deliver(recorded.arrival());
                     }});
  for (const auto& output : outputs) output->follow(player, options.read);
  serve_until_end(outputs, seconds, &player);
  const bool closed = close(outputs);
  return report_faults(reader) && closed;
}

bool run_replay(tool::BusConnection& bus, const RecordingOptions& options, double seconds) {
  RecordingReader reader(options.replay);
  if (!reader.open()) return report_faults(reader);
  if (!bus.open()) return false;
  Replay replay(bus.transport());
  Player player(reader, {.speed = options.speed.value_or(1), .loop = options.loop},
                {.begin = [](const auto&) {}, .take = [&](const auto& m) { replay.publish(m); }});
  serve_until_end({}, seconds, &player);
  errno = 0;
  std::cout << "satnav-tap: " << replay.published() << " messages published, " << replay.dropped()
            << " dropped\n"
            << std::flush;
  const bool full = !std::cout && errno != EPIPE;
  if (full) std::cerr << "satnav-tap: " << cannot_write("", errno) << '\n';
  return report_faults(reader) && !full;
}

}  // namespace ecu::koru::tap
