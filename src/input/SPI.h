#pragma once

#include <linux/spi/spidev.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "input/BufferedInput.h"
#include "input/GpioLine.h"

namespace ecu::koru::gpspub {

/// The receiver on the SPI bus (spidev). The host clocks every byte. The receiver sends 0xFF while it has no
/// data, and framing drops these bytes between items. The baud rate has no effect.
///
/// Without TX-ready control, waiting() polls with short transfers. With it, waiting() sleeps until the
/// receiver announces data on the line (GPIO 124, active low, read through sysfs). Control is off until
/// setTxReadyCheck() and again after every disconnect(). It also goes off if the line can no longer be read,
/// or announces nothing for two seconds while the receiver has data.
///
/// A read failure is logged once. The thread then pauses for 10 ms or for the rest of the polling slice.
/// After a second of nothing but failures the device counts as gone.
///
/// Owned by the service, service thread only.
class SPI final : public BufferedInput {
 public:
  /// The path of a receiver on this bus.
  static constexpr std::string_view DEVICE = "/dev/spidev2.0";
  /// Both ends send this byte while they have nothing to say.
  static constexpr unsigned char FILL = 0xFF;

  /// Uses the real bus.
  SPI() : SPI(makeDeviceFiles()) {}
  explicit SPI(std::unique_ptr<IDeviceFiles> device);
  ~SPI() override;
  SPI(const SPI&) = delete;
  SPI& operator=(const SPI&) = delete;

  [[nodiscard]] bool connect() override;
  void disconnect() override;
  [[nodiscard]] bool waiting(int timeout_us) override;
  [[nodiscard]] bool read() override;
  /// Reads the receiver's pending bytes first, because those clocked in with the message are lost.
  int sendBinary(const unsigned char* data, int len) override;
  /// Receiver control switches this on if the receiver uses the line and the line works.
  void setTxReadyCheck(bool on) override;
  /// Returns the line's level, or -1 if it cannot be read.
  [[nodiscard]] int readGpioTxRdyPin() override { return m_gpio.level(); }

 private:
  void configureGpioTxRdy();
  void exportGpio(bool log);
  [[nodiscard]] bool writeSetting(const std::string& path, std::string_view value, bool log);
  void closeGpioTxRdy();
  void dropDeviceInput();

  [[nodiscard]] bool waitingSlave(int slice_us);
  [[nodiscard]] bool pollSlave();
  [[nodiscard]] bool waitTxReady(int slice_us);
  [[nodiscard]] bool probeSilentLine();
  void loseLine(const char* why);
  void sleepRestOfSlice(int64_t at_least_ns);

  [[nodiscard]] int clockIn(int len);
  [[nodiscard]] int transfer(int len);
  void noteFailure();
  void readFailed(int res);
  void readAhead();
  static void logSent(const unsigned char* data, int len, int res);
  [[nodiscard]] std::span<const unsigned char> received(int len) const {
    return std::span(m_rx_buffer).first(static_cast<size_t>(len));
  }

  static constexpr int m_spi_buffer_size = 4096;
  static constexpr int m_spi_block = 400;
  static constexpr int m_gpio_number = 124;

  const std::unique_ptr<IDeviceFiles> m_device;
  std::vector<unsigned char> m_tx_buffer;
  std::vector<unsigned char> m_rx_buffer;
  spi_ioc_transfer m_transfer{};          // the driver's defaults but for buffers and length
  bool m_ublox_txrdy_configured = false;  // as receiver control says
  bool m_has_gpio_txrdy_control = false;  // waiting() uses the line
  GpioLine m_gpio{*m_device, std::to_string(m_gpio_number)};

  bool m_gpio_failure_logged = false;  // the last set-up failed
  int64_t m_line_active_ns = 0;        // last announcement, probe or switch of control
  int64_t m_slice_end_ns = 0;          // without TX-ready control
  bool m_woken = false;                // during the present waiting()
  int64_t m_first_failure_ns = 0;      // start of an unbroken run; 0: the last transfer worked
  int64_t m_last_failure_ns = 0;
  bool m_failure_told = false;
};

}  // namespace ecu::koru::gpspub
