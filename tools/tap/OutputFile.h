#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>
#include <string_view>

namespace ecu::koru::tap {

/// A file for where a vehicle was: only its owner can read it, and a symbolic link is not followed. For one
/// thread at a time, but problem() is for any.
class OutputFile {
 public:
  /// `replace`: an existing file may be overwritten.
  OutputFile(std::string name, bool replace) : m_name(std::move(name)), m_replace(replace) {}
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Finds out whether it can be written, and changes nothing yet. Returns false if it cannot.
  [[nodiscard]] bool prepare();
  /// Creates it, or empties the one that is there. After prepare(). Returns false if that fails.
  [[nodiscard]] bool create();
  /// Writes both texts at once. The next call overwrites `tail`, so it must write as many bytes or more.
  /// Returns false if that fails; then the file stays as it was before.
  [[nodiscard]] bool append(std::string_view lasting, std::string_view tail = {});
  /// Returns why the file could not be created or written, with its name; empty if it could.
  [[nodiscard]] std::string problem() const;

 private:
  [[nodiscard]] int try_to_prepare();
  /// Returns an errno, 0 if all is written.
  [[nodiscard]] int write(std::string_view text) const;
  /// Makes the tail the end of the file again. `end`: of the lasting text.
  void restore(off_t end) const;

  const std::string m_name;
  const bool m_replace;
  int m_fd = -1;
  std::string m_tail;
  std::atomic<int> m_error = 0;  // errno
};

}  // namespace ecu::koru::tap
