#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>

namespace ecu::koru::sim {

/// Writes a line for each sentence that was handed to the host: "<monotonic_ns> <sentence without CR LF>",
/// flushed at once. The time is CLOCK_MONOTONIC just before the write that held the sentence's last byte.
/// What is not printable is written as \xHH.
class Trace {
 public:
  /// Throws FileError when the file cannot be made.
  explicit Trace(const std::string& path);

  /// Bytes as they went to the host, in order.
  void written(std::span<const uint8_t> bytes, int64_t monotonic_ns);
  /// The host did not get, or could not read, what comes next: a sentence in progress is forgotten.
  void interrupted();

 private:
  void finish(int64_t monotonic_ns);

  std::ofstream m_file;
  std::string m_sentence;  // from its '$' on; empty outside of a sentence
};

}  // namespace ecu::koru::sim
