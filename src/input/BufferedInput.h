#pragma once

#include <string>

#include "input/BaudRate.h"
#include "input/IGnssInput.h"
#include "input/ReceiveBuffer.h"

namespace ecu::koru::gpspub {

/// The part of an input that does not depend on its device: the receive buffer, the speed and the state of
/// the connection. Service thread only.
class BufferedInput : public IGnssInput {
 public:
  [[nodiscard]] int getMessageLength() final { return m_received.bytesRead(); }
  [[nodiscard]] unsigned char* getBuffer() final { return m_received.begin(); }
  void setGnssDeviceName(const std::string& name) final { m_gnss_device = name; }
  bool setBaudRate(unsigned int baud) final { return m_baud.set(baud); }
  [[nodiscard]] bool isConnected() final { return m_fd_serial != -1; }
  void tryNextBaudRate() final { m_baud.tryNext(); }
  [[nodiscard]] unsigned int getBaudRate() final { return m_baud.hunted(); }
  [[nodiscard]] int getLinesReceived() final { return m_received.numLines(); }
  void setLinesReceived(int lines) final { m_received.setNumLines(lines); }
  [[nodiscard]] ItemKind getItemKind() final { return m_received.itemKind(); }
  [[nodiscard]] int getBytesWaiting() final { return m_received.bytesWaiting(); }
  [[nodiscard]] long long bytesDiscarded() const { return m_received.bytesDiscarded(); }
  [[nodiscard]] InputCounts getCounts() final { return m_received.counts(); }
  void setWakeUp(WakeUp& wake) final { m_wake = &wake; }
  [[nodiscard]] bool isDeviceGone() final { return m_device_gone || m_received.isFlooded(); }
  void clearBuffer() final {
    m_received.drop();
    m_drop_device_input = true;
  }

 protected:
  std::string m_gnss_device;
  WakeUp* m_wake = nullptr;  // null: nothing ends a wait early
  int m_fd_serial = -1;
  ReceiveBuffer m_received;
  BaudRate m_baud;
  bool m_device_gone = false;
  bool m_drop_device_input = false;  // a device (a pseudo-terminal, a receiver) collects bytes while closed
};

}  // namespace ecu::koru::gpspub
