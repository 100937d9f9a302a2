#include "tools/check/DeviceCheck.h"

#include <dirent.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <tuple>
#include <vector>

#include "input/SPI.h"
#include "input/SerialInput.h"
#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "tools/common/StopSignals.h"
#include "wire/NmeaLine.h"

namespace ecu::koru::check {

namespace {

namespace fs = std::filesystem;

constexpr const char* AREA = "device";
constexpr const char* SERVICE = "satnavd";
constexpr int RATES = 5;
constexpr std::chrono::milliseconds LISTENING{1200};  // more than an epoch at 1 Hz
constexpr int STEP_US = 50'000;

// -- Who holds it

struct Holders {
  std::vector<std::string> processes;  // "name (process 12)"
  bool only_the_service = true;
  bool complete = true;  // every process could be looked into
};

bool is_same(const struct stat& a, const struct stat& b) {
  if (S_ISCHR(a.st_mode)) return S_ISCHR(b.st_mode) && a.st_rdev == b.st_rdev;
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// Returns true if the process has the file open. Opens nothing.
bool has_open(const fs::path& process, const struct stat& file, bool& complete) {
  std::error_code failed;
  fs::directory_iterator descriptors(process / "fd", failed);
  if (failed) complete = complete && failed != std::errc::permission_denied;
  for (; !failed && descriptors != fs::directory_iterator(); descriptors.increment(failed)) {
    struct stat open {};
    if (stat(descriptors->path().c_str(), &open) == 0 && is_same(file, open)) return true;
  }
  return false;
}

Holders holders_of(const struct stat& file) {
  Holders holders;
  std::error_code failed;
  for (fs::directory_iterator entry("/proc", failed); !failed && entry != fs::directory_iterator();
       entry.increment(failed)) {
    const std::string id = entry->path().filename();
    const bool is_process = id.find_first_not_of("0123456789") == std::string::npos;
    if (!is_process || id == std::to_string(getpid()) || !has_open(entry->path(), file, holders.complete))
      continue;
    std::string name;
    std::getline(std::ifstream(entry->path() / "comm"), name);
    if (name != SERVICE) holders.only_the_service = false;
    holders.processes.push_back(logging::escaped(name) + " (process " + id + ")");
  }
  return holders;
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const auto& text : texts) all += (all.empty() ? "" : ", ") + text;
  return all;
}

std::string permissions_of(const struct stat& file) {
  const passwd* const user = getpwuid(file.st_uid);
  const group* const owner = getgrgid(file.st_gid);
  char mode[8];
  std::ignore = std::snprintf(mode, sizeof mode, "%04o", file.st_mode & 07777U);
  return std::string("mode ") + mode + " " + (user != nullptr ? user->pw_name : std::to_string(file.st_uid)) +
         ":" + (owner != nullptr ? owner->gr_name : std::to_string(file.st_gid));
}

// -- Listening

struct Heard {
  size_t bytes = 0;
  size_t sentences = 0;
  size_t frames = 0;
};

/// The service's terminal device, but it sends nothing, leaves the settings as they were and counts bytes.
class ListeningDevice final : public gpspub::ITerminalDevice {
 public:
  ListeningDevice(size_t& bytes, std::optional<tool::StopSignals>& signals)
      : m_bytes(bytes), m_signals(signals) {}

  int open(const std::string& path) override {
    const int fd = m_device->open(path);
    if (fd < 0) return fd;
    if (!m_signals) m_signals.emplace();  // from now on a signal must not leave the terminal changed
    m_saved = m_device->getAttributes(fd, m_before) == 0;
    return fd;
  }
  int close(int fd) override {
    if (m_saved) m_device->setAttributes(fd, m_before);
    return m_device->close(fd);
  }
  ssize_t read(int fd, void* data, size_t max) override {
    const ssize_t count = m_device->read(fd, data, max);
    if (count > 0) m_bytes += static_cast<size_t>(count);
    return count;
  }
  ssize_t write(int /*fd*/, const void* /*data*/, size_t /*len*/) override {
    errno = EPERM;
    return -1;
  }
  int waitReadable(int fd, int timeout_us, WakeUp* wake) override {
    return m_device->waitReadable(fd, timeout_us, wake);
  }
  bool isWritable(int /*fd*/) override { return false; }
  int bytesReadable(int fd) override { return m_device->bytesReadable(fd); }
  void dropInput(int fd) override { m_device->dropInput(fd); }
  int getAttributes(int fd, termios& attributes) override { return m_device->getAttributes(fd, attributes); }
  int setAttributes(int fd, const termios& attributes) override {
    return m_device->setAttributes(fd, attributes);
  }

 private:
  const std::unique_ptr<gpspub::ITerminalDevice> m_device = gpspub::makeTerminalDevice();
  size_t& m_bytes;
  std::optional<tool::StopSignals>& m_signals;
  termios m_before{};
  bool m_saved = false;
};

bool stopped(const std::optional<tool::StopSignals>& signals) {
  if (!signals) return false;
  pollfd waits{signals->fd(), POLLIN, 0};
  return poll(&waits, 1, 0) > 0;
}

/// Counts a framed item; a line at the wrong rate has no right checksum.
void count_item(gpspub::SerialInput& input, Heard& heard) {
  const auto length = static_cast<unsigned>(input.getMessageLength());
  if (input.getItemKind() == gpspub::ItemKind::UBX_FRAME) ++heard.frames;
  if (input.getItemKind() == gpspub::ItemKind::NMEA_LINE &&
      gpspub::GnssUtils::isValidNmeaMessage(input.getBuffer(), length))
    ++heard.sentences;
}

class Listener {
 public:
  Listener(const std::string& path, unsigned baud_rate, Report& report)
      : m_input(std::make_unique<ListeningDevice>(m_heard.bytes, m_signals)), m_path(path), m_report(report) {
    m_input.setGnssDeviceName(path);
    m_input.setBaudRate(baud_rate);
    m_rate.set(baud_rate);
  }

  /// Returns false if a signal ended it.
  bool run() {
    for (int tries = 0; tries < RATES; ++tries, m_input.tryNextBaudRate(), m_rate.tryNext()) {
      m_heard = {};
      m_input.clearBuffer();
      const long long dropped_before = m_input.bytesDiscarded();
      if (!m_input.connect()) {
        const int error = errno;
        m_report.find(AREA, logging::escaped(m_path),
                      error == EBUSY ? "another process has locked it; root can see which one"
                                     : std::string("cannot be opened: ") + std::strerror(error));
        return true;
      }
      const bool ended = listen();
      m_input.disconnect();
      if (!ended) return false;
      tell(m_input.bytesDiscarded() - dropped_before);
      if (m_heard.sentences + m_heard.frames == 0) continue;
      if (tries > 0)
        m_report.note(AREA, "baud rate", "not the configured one; the service looks at the others by itself");
      return true;
    }
    m_report.find(AREA, logging::escaped(m_path), "no receiver is heard at any of these rates");
    return true;
  }

 private:
  bool listen() {
    const auto end = steady_now() + LISTENING;
    while (steady_now() < end && !m_input.isDeviceGone()) {
      if (stopped(m_signals)) return false;
      if (m_input.waiting(STEP_US) && m_input.read()) count_item(m_input, m_heard);
    }
    return true;
  }

  void tell(long long dropped) {
    const unsigned baud = m_rate.bitsPerSecond();
    m_report.unit.push_back(
        {AREA,
         std::to_string(baud) + " bit/s",
         logging::text(m_heard.bytes, " bytes in ", LISTENING.count(), " ms: ", m_heard.sentences,
                       " sentences, ", m_heard.frames, " UBX frames, ", dropped, " bytes dropped"),
         false,
         {{"baud_rate", baud},
          {"bytes", m_heard.bytes},
          {"sentences", m_heard.sentences},
          {"frames", m_heard.frames},
          {"dropped", dropped}}});
  }

  Heard m_heard;
  std::optional<tool::StopSignals> m_signals;
  gpspub::SerialInput m_input;
  gpspub::BaudRate m_rate;  // the input's
  const std::string m_path;
  Report& m_report;
};

}  // namespace

bool check_device(const std::string& path, unsigned baud_rate, Report& report) {
  const std::string shown = logging::escaped(path);
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) {
    report.find(AREA, shown, std::strerror(errno));
    return true;
  }
  if (!S_ISCHR(file.st_mode)) {
    report.find(AREA, shown, "this is no device");
    return true;
  }
  const Holders holders = holders_of(file);
  if (!holders.processes.empty()) {
    report.unit.push_back(
        {AREA, shown, permissions_of(file) + ", held by " + joined(holders.processes) + "; not listened to",
         !holders.only_the_service});
    return true;
  }
  report.note(
      AREA, shown,
      permissions_of(file) + (holders.complete ? ", held by nobody"
                                               : ", held by none of the processes that can be looked into"));
  if (path == gpspub::SPI::DEVICE) {
    report.note(AREA, shown, "not listened to: a receiver on SPI sends only what is clocked out of it");
    return true;
  }
  return Listener(path, baud_rate, report).run();
}

}  // namespace ecu::koru::check
