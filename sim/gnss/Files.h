#pragma once

#include <fstream>
#include <stdexcept>
#include <string>

namespace ecu::koru::sim {

/// A file that cannot be used; the text is "FILE: reason" or "FILE:LINE: reason".
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  FileError(const std::string& file, size_t line, const std::string& reason)
      : std::runtime_error(file + ":" + std::to_string(line) + ": " + reason) {}
};

/// The whole file, binary, at most 256 MiB. Throws FileError.
[[nodiscard]] std::string read_file(const std::string& path);

/// A new or emptied file, for its owner alone when it is new; a symbolic link is not followed. Throws
/// FileError.
[[nodiscard]] std::ofstream create_file(const std::string& path);

}  // namespace ecu::koru::sim
