#include "tools/tap/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tools/tap/Output.h"

namespace ecu::koru::tap {

OutputFile::~OutputFile() {
  if (m_fd >= 0) ::close(m_fd);
}

bool OutputFile::prepare() {
  m_error = try_to_prepare();
  return m_error == 0;
}

/// Returns an errno, 0 if the file can be written.
int OutputFile::try_to_prepare() {
  struct stat status {};
  if (!m_replace && ::lstat(m_name.c_str(), &status) == 0) return EEXIST;
  if (m_replace) m_fd = ::open(m_name.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
  if (m_fd >= 0) return 0;
  if (m_replace && errno != ENOENT) return errno;
  const auto folder = std::filesystem::path(m_name).parent_path();
  return ::faccessat(AT_FDCWD, folder.empty() ? "." : folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0
                                                                                                    : errno;
}

bool OutputFile::create() {
  constexpr mode_t OWNER_ONLY = 0600;
  constexpr int NEW = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;  // it does not follow links either
  if (m_fd < 0) m_fd = ::open(m_name.c_str(), NEW, OWNER_ONLY);
  struct stat status {};
  const bool good =
      m_fd >= 0 && ::fstat(m_fd, &status) == 0 &&
      (!S_ISREG(status.st_mode) || (::ftruncate(m_fd, 0) == 0 && ::fchmod(m_fd, OWNER_ONLY) == 0));
  if (!good) m_error = errno;
  return good;
}

bool OutputFile::append(std::string_view lasting, std::string_view tail) {
  if (m_error != 0) return false;
  const off_t begin = ::lseek(m_fd, -static_cast<off_t>(m_tail.size()), SEEK_CUR);
  if (begin < 0 && !m_tail.empty()) {
    m_error = errno;  // a pipe takes lines, but not what is overwritten later
    return false;
  }
  m_error = write(std::string(lasting).append(tail));
  if (m_error == 0) {
    m_tail = tail;
  } else if (begin >= 0) {
    restore(begin);
  }
  return m_error == 0;
}

std::string OutputFile::problem() const {
  if (m_error == 0) return {};
  return cannot_write(m_name, m_error) + (m_error == EEXIST ? "; --force replaces it" : "");
}

int OutputFile::write(std::string_view text) const {
  while (!text.empty()) {
    const ssize_t written = ::write(m_fd, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? errno : ENOSPC;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return 0;
}

void OutputFile::restore(off_t end) const {
  // There is room for the tail: it was there before. Nothing else helps if this fails, as on /dev/full.
  [[maybe_unused]] const bool restored = ::lseek(m_fd, end, SEEK_SET) == end && write(m_tail) == 0 &&
                                         ::ftruncate(m_fd, end + static_cast<off_t>(m_tail.size())) == 0;
}

}  // namespace ecu::koru::tap
