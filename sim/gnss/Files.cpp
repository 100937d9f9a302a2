#include "sim/gnss/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace ecu::koru::sim {

std::string read_file(const std::string& path) {
  constexpr size_t MAX_SIZE = 256U << 20U;
  if (std::error_code ignored; std::filesystem::is_directory(path, ignored))
    throw FileError(path + ": is a folder");
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in) throw FileError(path + ": " + std::strerror(errno));
  std::string bytes;
  char block[65536];
  do {
    in.read(block, sizeof block);
    bytes.append(block, static_cast<size_t>(in.gcount()));
    if (bytes.size() > MAX_SIZE) throw FileError(path + ": is larger than 256 MiB");
  } while (in);
  if (in.bad()) throw FileError(path + ": " + std::strerror(errno));
  return bytes;
}

std::ofstream create_file(const std::string& path) {
  constexpr mode_t OWNER_ONLY = 0600;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, OWNER_ONLY);
  if (fd < 0) throw FileError(path + ": " + std::strerror(errno));
  struct stat status {};
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
    static_cast<void>(::fchmod(fd, OWNER_ONLY));  // the file may have existed already
  std::ofstream out("/proc/self/fd/" + std::to_string(fd), std::ios::binary);
  ::close(fd);
  if (!out) throw FileError(path + ": " + std::strerror(errno));
  return out;
}

void write_line(std::ostream& out, const std::string& name, std::string_view line) {
  if (!out) return;  // an earlier line found no reader
  errno = 0;
  out << line << '\n' << std::flush;
  if (out || errno == EPIPE) return;
  throw FileError((name == "-" ? "cannot write: " : "cannot write " + name + ": ") + std::strerror(errno));
}

}  // namespace ecu::koru::sim
