#include "input/LinkRecorder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "platform/base/Time.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::gpspub {

namespace {

using linkrecord::EventKind;
using linkrecord::Status;

constexpr int64_t NS_PER_US = 1'000;
constexpr int64_t LONGEST_HELD_NS = 5'000'000'000;
constexpr mode_t OWNER_ONLY = 0600;
constexpr size_t MOST_HELD = 16384;     // bytes of the receiver and to it
constexpr size_t BUFFER_BYTES = 65536;  // they fit in with their headers, so that there is one write

std::span<const uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// The callers' failures are in errno while they record.
class KeepErrno {
 public:
  KeepErrno() = default;
  ~KeepErrno() { errno = m_errno; }
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  const int m_errno = errno;
};

/// Returns true for a pcap file of this link type with times in ns, in this machine's byte order.
bool isRecording(const std::string& path) {
  constexpr uint32_t MAGIC = 0xA1B23C4D;
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return false;
  std::array<uint32_t, PcapFile::FILE_HEADER_LEN / sizeof MAGIC> header{};  // begins and ends with these
  const bool is_recording = ::read(fd, header.data(), sizeof header) == sizeof header &&
                            header.front() == MAGIC && header.back() == uint32_t{linkrecord::LINK_TYPE};
  ::close(fd);
  return is_recording;
}

/// Returns why this file must stay as it is; empty if it is a recording, empty or not there.
std::string whyKept(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode)) return "is not a regular file";
  return status.st_size == 0 || isRecording(path) ? std::string() : "exists and is not a recording";
}

std::string olderThan(const std::string& path) {
  return path + ".1";
}

/// Makes a recording that is there the older one. Returns the reason if that fails.
std::string moveAway(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) return {};
  return std::rename(path.c_str(), olderThan(path).c_str()) == 0 ? std::string() : std::strerror(errno);
}

/// Opens a file that is only its owner's. Returns null with the reason in errno. The buffer must live until
/// the file is closed.
std::FILE* create(const std::string& path, std::vector<char>& buffer) {
  constexpr int FLAGS = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const int fd = ::open(path.c_str(), FLAGS, OWNER_ONLY);
  if (fd < 0) return nullptr;
  struct stat status {};
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
    static_cast<void>(::fchmod(fd, OWNER_ONLY));  // an empty file may have been there already
  std::FILE* const file = ::fdopen(fd, "wb");
  if (file == nullptr) {
    ::close(fd);
  } else {
    buffer.resize(BUFFER_BYTES);  // without one of its own the C library ignores the size
    static_cast<void>(std::setvbuf(file, buffer.data(), _IOFBF, buffer.size()));
  }
  return file;
}

}  // namespace

LinkRecorder::~LinkRecorder() {
  if (m_file) static_cast<void>(writeHeld(m_written_ns));
}

std::string LinkRecorder::refusal(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0 && S_ISCHR(status.st_mode)) return {};
  if (const std::string why = whyKept(path); !why.empty()) return "it " + why;
  if (const std::string why = whyKept(olderThan(path)); !why.empty()) return olderThan(path) + " " + why;
  return {};
}

void LinkRecorder::opened(unsigned baud) {
  record(Status{Status::Kind::OPENED, baud});
  m_is_open = true;
  m_baud = baud;
}

void LinkRecorder::rateSet(unsigned baud) {
  if (baud == m_baud) return;
  record(Status{Status::Kind::RATE, baud});
  m_baud = baud;
}

void LinkRecorder::closed() {
  m_is_open = false;
  record(Status{Status::Kind::CLOSED});
}

void LinkRecorder::record(const Status& status) {
  record(EventKind::STATUS_CHANGE, bytesOf(linkrecord::textOf(status)));
}

void LinkRecorder::record(EventKind kind, std::span<const uint8_t> payload) {
  if (m_failed) return;
  const KeepErrno keep_errno;
  const int64_t now_ns = time_source().steady_ns();
  if (!m_file) {
    m_begin_ns = now_ns - GnssUtils::getMicrosecDuration(0) * NS_PER_US;
    m_written_ns = now_ns;
    if (!begin()) return;
    LOG.info("records the receiver's link in ", logging::escaped(m_options.path));
  }
  if (!makeRoom(now_ns, payload.size())) return;
  hold(now_ns, kind, payload);
  if (now_ns - m_written_ns >= LONGEST_HELD_NS || m_held_bytes.size() >= MOST_HELD)
    static_cast<void>(writeHeld(now_ns));
}

bool LinkRecorder::begin() {
  m_bytes = PcapFile::FILE_HEADER_LEN;
  std::string problem = refusal(m_options.path);
  if (problem.empty()) problem = moveAway(m_options.path);
  if (problem.empty()) {
    if (std::FILE* const file = create(m_options.path, m_buffer))
      m_file = PcapFile::begin(file, linkrecord::LINK_TYPE, problem);
    else
      problem = std::strerror(errno);
  }
  if (!m_file) fail(problem);
  return m_file != nullptr;
}

/// Begins a new file if the event does not fit into this one. The new one begins with the port's state.
bool LinkRecorder::makeRoom(int64_t now_ns, size_t payload_len) {
  if (m_bytes + PcapFile::PACKET_HEADER_LEN + linkrecord::HEADER_LEN + payload_len <= m_options.max_bytes)
    return true;
  if (!writeHeld(now_ns)) return false;
  m_file.reset();
  if (!begin()) return false;
  const std::string state = linkrecord::textOf({Status::Kind::RATE, m_baud});
  if (m_is_open) hold(now_ns, EventKind::STATUS_CHANGE, bytesOf(state));
  return true;
}

void LinkRecorder::hold(int64_t now_ns, EventKind kind, std::span<const uint8_t> payload) {
  if (m_held.empty()) m_wall_offset_ns = time_source().wall_ns() - now_ns;
  m_held.push_back({now_ns, payload.size(), kind});
  m_held_bytes.insert(m_held_bytes.end(), payload.begin(), payload.end());
  m_bytes += PcapFile::PACKET_HEADER_LEN + linkrecord::HEADER_LEN + payload.size();
}

/// Returns false after a failure.
bool LinkRecorder::writeHeld(int64_t now_ns) {
  m_written_ns = now_ns;
  std::vector<uint8_t> packet;
  auto payload = m_held_bytes.cbegin();
  bool written = true;
  for (auto held = m_held.cbegin(); written && held != m_held.cend(); ++held) {
    const auto header = linkrecord::makeHeader(held->kind, (held->at_ns - m_begin_ns) / NS_PER_US);
    const auto payload_end = std::next(payload, static_cast<ptrdiff_t>(held->len));
    packet.assign(header.begin(), header.end());
    packet.insert(packet.end(), payload, payload_end);
    written = m_file->add(held->at_ns + m_wall_offset_ns, packet);
    payload = payload_end;
  }
  written = written && m_file->flush();
  if (!written) fail(std::strerror(errno));
  m_held.clear();
  m_held_bytes.clear();
  return written;
}

void LinkRecorder::fail(const std::string& reason) {
  LOG.warning("the receiver's link is not recorded in ", logging::escaped(m_options.path), ": ",
              logging::escaped(reason), "; the service goes on without it");
  m_failed = true;
  m_file.reset();
}

}  // namespace ecu::koru::gpspub
