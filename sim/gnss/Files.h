#pragma once

#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ecu::koru::sim {

/// A file cannot be used. The text is "FILE: reason" or "FILE:LINE: reason".
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  FileError(const std::string& file, size_t line, const std::string& reason)
      : std::runtime_error(file + ":" + std::to_string(line) + ": " + reason) {}
};

/// Returns the bytes of the whole file, at most 256 MiB. Throws FileError.
[[nodiscard]] std::string read_file(const std::string& path);

/// Creates or empties the file. A regular file becomes readable and writable by its owner only. Does not
/// follow a symbolic link. Throws FileError.
[[nodiscard]] std::ofstream create_file(const std::string& path);

/// Writes a line at once. `name` is the file's; "-": standard output. Drops the line if the stream's reader
/// has gone away. Throws FileError if it cannot be written for another reason.
void write_line(std::ostream& out, const std::string& name, std::string_view line);

}  // namespace ecu::koru::sim
