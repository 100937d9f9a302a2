#pragma once

#include <termios.h>

#include <memory>
#include <utility>

#include "input/BufferedInput.h"
#include "input/TerminalDevice.h"

namespace ecu::koru::gpspub {

/// The receiver on a serial port. Owned by the service, service thread only.
class SerialInput final : public BufferedInput {
 public:
  explicit SerialInput(std::unique_ptr<ITerminalDevice> device = makeTerminalDevice())
      : m_device(std::move(device)) {}
  ~SerialInput() override { SerialInput::disconnect(); }
  SerialInput(const SerialInput&) = delete;
  SerialInput& operator=(const SerialInput&) = delete;

  [[nodiscard]] bool connect() override;
  void disconnect() override;
  [[nodiscard]] bool waiting(int timeout_us) override;
  [[nodiscard]] bool read() override;
  int sendBinary(const unsigned char* data, int len) override;

 private:
  void applyAttributes();
  void logAttributes(const termios& attributes) const;
  [[nodiscard]] int readDevice();
  void logSent(const unsigned char* data, int len) const;

  const std::unique_ptr<ITerminalDevice> m_device;
  bool m_attributes_failure_logged = false;
  bool m_is_terminal = true;
  bool m_readable = false;  // waiting() found bytes to read
};

}  // namespace ecu::koru::gpspub
