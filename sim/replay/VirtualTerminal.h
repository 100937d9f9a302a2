#pragma once

#include <cstdint>
#include <span>

#include "input/TerminalDevice.h"
#include "sim/replay/AgendaTime.h"

namespace ecu::koru::sim {

/// The receiver's end of a VirtualTerminal. Times are us since the start.
class LinkEnd {
 public:
  virtual ~LinkEnd() = default;
  virtual void advance_to(int64_t now_us) = 0;
  /// Returns when the next byte comes or something else changes; INT64_MAX if nothing does.
  [[nodiscard]] virtual int64_t next_byte_us() const = 0;
  [[nodiscard]] virtual size_t available() const = 0;
  virtual size_t read(std::span<uint8_t> out) = 0;
  virtual void write(std::span<const uint8_t> /*bytes*/) {}
  /// Returns false if the device takes no settings, because it is no terminal.
  [[nodiscard]] virtual bool is_terminal() const { return true; }
  virtual void set_host_baud(unsigned /*baud*/) {}
  /// Returns 0, or the errno with which the device cannot be opened now.
  [[nodiscard]] virtual int open_error() { return 0; }
  virtual void set_open(bool /*open*/) {}
  /// Returns until when the last opening, closing or writing takes.
  [[nodiscard]] virtual int64_t done_us() const { return 0; }
  /// Returns true if the open device has hung up: it is readable and gives 0 bytes.
  [[nodiscard]] virtual bool is_gone() const { return false; }
  /// The service is about to wait for bytes.
  virtual void wait_begins() {}
};

/// A terminal device in virtual time. Time passes only while the service waits for bytes, in its sleeps, and
/// where the link says so.
class VirtualTerminal final : public gpspub::ITerminalDevice {
 public:
  /// Both must outlive it.
  VirtualTerminal(AgendaTime& time, LinkEnd& link) : m_time(time), m_link(link) {}

  int open(const std::string& path) override;
  int close(int fd) override;
  ssize_t read(int fd, void* data, size_t max) override;
  ssize_t write(int fd, const void* data, size_t len) override;
  int waitReadable(int fd, int timeout_us, WakeUp* wake) override;
  bool isWritable(int /*fd*/) override { return true; }
  int bytesReadable(int /*fd*/) override { return static_cast<int>(m_link.available()); }
  void dropInput(int fd) override;
  int getAttributes(int /*fd*/, termios& /*attributes*/) override { return 0; }
  int setAttributes(int fd, const termios& attributes) override;

 private:
  AgendaTime& m_time;
  LinkEnd& m_link;
};

}  // namespace ecu::koru::sim
