#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/Settings.h"
#include "core/GPSDClient.h"
#include "platform/com/MemoryTransport.h"
#include "sim/replay/AgendaTime.h"
#include "sim/replay/Options.h"
#include "sim/replay/RecordedLink.h"

namespace ecu::koru::sim {

/// Files in place of the processor lines, which take everything and do nothing. Deleted at the end.
class ResetLineFiles {
 public:
  /// Throws std::system_error or std::filesystem::filesystem_error if they cannot be made.
  explicit ResetLineFiles(bool has_line);
  ~ResetLineFiles();
  ResetLineFiles(const ResetLineFiles&) = delete;
  ResetLineFiles& operator=(const ResetLineFiles&) = delete;
  [[nodiscard]] const std::string& root() const { return m_root; }

 private:
  std::string m_root;
};

/// The whole service over a recorded link and a bus in memory, in virtual time. While it exists, the clocks
/// of the process are virtual. One at a time, main thread.
class ReplayedService {
 public:
  /// Gets every message, the time since the service began and the system clock, us. Returns false to end.
  using Publish =
      std::function<bool(const com::MemoryTransport::Record& record, int64_t at_us, int64_t wall_us)>;
  ReplayedService(const LinkRecording& recording, Differences& differences, Publish publish, double uptime_s);
  ~ReplayedService();
  ReplayedService(const ReplayedService&) = delete;
  ReplayedService& operator=(const ReplayedService&) = delete;

  /// The unit says this on the bus now.
  void say(const std::vector<Publication>& publications);
  /// The unit says this at a time.
  void say_at(int64_t at_us, Publication publication);
  /// Makes the service as satnavd's main() does. Returns why that is not possible; empty if it was.
  [[nodiscard]] std::string start(const ReplayOptions& options, const gpspub::Settings& settings);
  /// Runs it until the recording ends, or `to_us`, or until publishing ends it.
  void run(int64_t to_us);

 private:
  void published(const com::MemoryTransport::Record& record);
  void stop();

  const Publish m_publish;
  RecordedLink m_link;
  AgendaTime m_time;
  std::shared_ptr<com::MemoryTransport> m_bus = std::make_shared<com::MemoryTransport>();
  std::unique_ptr<ResetLineFiles> m_lines;
  std::unique_ptr<gpspub::GPSDClient> m_service;  // null before start()
  bool m_stopped = false;
};

/// Returns the time since boot at which the service began, as far as the recording says: it opens the port at
/// 9600 bit/s first if the unit has just been switched on.
[[nodiscard]] double likely_uptime_s(const LinkRecording& recording);

}  // namespace ecu::koru::sim
