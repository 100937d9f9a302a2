#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "sim/gnss/Descriptor.h"

namespace ecu::koru::sim {

/// A pseudo-terminal whose slave side looks like a serial port to the host; this is the receiver's end. The
/// slave starts raw, without echo. Failures throw std::system_error.
class Pty {
 public:
  /// `baud`: the speed at which the slave starts; the one that the host sets stays, as long as this lives.
  explicit Pty(unsigned baud);

  /// The device for the host.
  [[nodiscard]] const std::string& path() const { return m_path; }
  /// For waiting until the host writes or closes; only while held, a closed one is always ready.
  [[nodiscard]] int descriptor() const { return m_master.get(); }

  /// Whether any process has the slave open.
  [[nodiscard]] bool held() const;
  /// The speed at which the host listens, bits/s; 0 when it hung up (B0) or chose one that no receiver has.
  [[nodiscard]] unsigned host_baud() const;
  /// Hands bytes to the host and returns how many found room. Never waits. Only while held: the kernel would
  /// keep what nobody waits for and give it to the next who opens.
  size_t write(std::span<const uint8_t> bytes);
  /// What the host has written, without waiting.
  size_t read(std::span<uint8_t> out);

  /// Throws away what the host did not read. A terminal keeps it beyond the last close, a serial port does
  /// not.
  void discard_unread();
  /// Bytes that lie ready for the host.
  [[nodiscard]] size_t unread() const;

 private:
  Descriptor m_master;
  std::string m_path;
};

/// A symbolic link, removed at the end if it is still this one.
class Link {
 public:
  /// An existing link of that name is replaced; throws std::system_error when the name is taken by another
  /// file or cannot be made.
  Link(std::string name, std::string target);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

 private:
  std::string m_name, m_target;
};

}  // namespace ecu::koru::sim
