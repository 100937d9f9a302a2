#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "sim/gnss/Files.h"

namespace ecu::koru::sim {

/// Writes a line for each sentence that the host got: "<monotonic_ns> <sentence without CR LF>", flushed at
/// once. The time is CLOCK_MONOTONIC just before the write of the sentence's last byte. Other characters than
/// printable ASCII are written as \xHH.
class Trace {
 public:
  /// Throws FileError if the file cannot be created.
  explicit Trace(const std::string& path) : m_name(path), m_file(create_file(path)) {}

  /// Takes the bytes that went to the host, in order. Throws FileError if a line cannot be written.
  void written(std::span<const uint8_t> bytes, int64_t monotonic_ns);
  /// Drops an incomplete sentence, because the host did not get, or could not read, the bytes that follow.
  void interrupted() { m_sentence.clear(); }

 private:
  void finish(int64_t monotonic_ns);

  const std::string m_name;
  std::ofstream m_file;
  std::string m_sentence;  // from its '$' on; empty outside a sentence
};

}  // namespace ecu::koru::sim
