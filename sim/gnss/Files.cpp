#include "sim/gnss/Files.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace ecu::koru::sim {

std::string read_file(const std::string& path) {
  constexpr size_t max_size = 256U << 20U;
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
    if (bytes.size() > max_size) throw FileError(path + ": is larger than 256 MiB");
  } while (in);
  if (in.bad()) throw FileError(path + ": " + std::strerror(errno));
  return bytes;
}

}  // namespace ecu::koru::sim
