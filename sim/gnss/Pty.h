#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "sim/gnss/Descriptor.h"

namespace ecu::koru::sim {

/// The receiver's end of a pseudo-terminal whose slave looks like a serial port to the host. The slave starts
/// raw, without echo. Failures throw std::system_error.
class Pty {
 public:
  /// `baud` is the initial speed of the slave. A speed that the host sets stays as long as this object lives.
  explicit Pty(unsigned baud);

  [[nodiscard]] const std::string& path() const { return m_path; }
  /// Returns the descriptor to wait on until the host writes or closes. Use it only while held() is true:
  /// while nobody has the slave open, it is always ready.
  [[nodiscard]] int descriptor() const { return m_master.get(); }

  /// Returns true if any process has the slave open.
  [[nodiscard]] bool held() const;
  /// Returns the host's speed, bits/s; 0 if it hung up (B0) or chose a speed that is not in the table.
  [[nodiscard]] unsigned host_baud() const;
  /// Writes bytes to the host and returns how many fitted. Never waits. Call it only while held() is true:
  /// otherwise the kernel keeps the bytes for the next process that opens the slave.
  size_t write(std::span<const uint8_t> bytes);
  /// Reads bytes that the host has written and returns how many. Never waits.
  size_t read(std::span<uint8_t> out);

  /// Discards bytes that the host did not read. A terminal keeps them after the last close, a serial
  /// port does not.
  void discard_unread();
  /// Returns how many bytes the host can read now.
  [[nodiscard]] size_t unread() const;

 private:
  Descriptor m_master;
  std::string m_path;
};

/// A symbolic link. The destructor removes it unless its target has changed.
class Link {
 public:
  /// Replaces an existing link of that name. Throws std::system_error if that fails or another file
  /// has the name.
  Link(std::string name, std::string target);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

 private:
  std::string m_name, m_target;
};

}  // namespace ecu::koru::sim
