#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "input/SerialInput.h"
#include "input/SpiDevice.h"

namespace ecu::koru::gpspub {

/// The receiver on the SPI bus (spidev). The host clocks every byte; the receiver says 0xFF while it has
/// nothing to say, which framing drops between items.
///
/// Without TX-ready control waiting() polls with short transfers. With it, it waits for the line on which the
/// receiver tells (active low) that it has something: GPIO 124, read through sysfs. Control is off until
/// setTxReadyCheck() and again after every disconnect(). A line that cannot be read any more, or that says
/// nothing for two seconds while the receiver has something to say, is lost: that switches it off too.
///
/// A transfer that fails is told once, and the rest of the slice is slept; after a second of nothing but
/// failures the device counts as gone. Owned by the service, service thread only.
class SPI final : public SerialInput {
 public:
  /// The path of a receiver on this bus.
  static constexpr std::string_view DEVICE = "/dev/spidev2.0";

  explicit SPI(std::unique_ptr<ISpiDevice> device = std::make_unique<SpiDevice>());
  ~SPI() override;
  SPI(const SPI&) = delete;
  SPI& operator=(const SPI&) = delete;

  [[nodiscard]] bool connect() override;
  void disconnect() override;
  [[nodiscard]] bool waiting(int timeout_us) override;
  [[nodiscard]] bool read() override;
  /// What the receiver has to say is read before: the bytes clocked in with the message are lost.
  int sendBinary(const unsigned char* data, int len) override;
  /// What receiver control found out: the receiver uses the line and it works.
  void setTxReadyCheck(bool on) override;
  /// The line's level; -1 when it cannot be read.
  [[nodiscard]] int readGpioTxRdyPin() override;

 private:
  void configureGpioTxRdy();
  void exportGpio(bool tell);
  [[nodiscard]] int openExported(const std::string& path, int flags) const;
  [[nodiscard]] bool writeSetting(const std::string& path, std::span<const char> value, bool tell) const;
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
  [[nodiscard]] std::span<const unsigned char> received(int len) const;

  static constexpr int m_spi_buffer_size = 4096;
  static constexpr int m_spi_block = 400;
  static constexpr int m_gpio_number = 124;

  const std::unique_ptr<ISpiDevice> m_device;
  int m_fd_gpio_txrdy = -1;
  std::vector<unsigned char> m_tx_buffer;
  std::vector<unsigned char> m_rx_buffer;
  spi_ioc_transfer m_transfer{};          // all but buffers and length: the driver's defaults
  bool m_ublox_txrdy_configured = false;  // says receiver control
  bool m_has_gpio_txrdy_control = false;  // waiting uses the line
  const std::string m_gpio_name = std::to_string(m_gpio_number);
  const std::string m_gpio_direction_path = "/sys/class/gpio/gpio" + m_gpio_name + "/direction";
  const std::string m_gpio_edge_path = "/sys/class/gpio/gpio" + m_gpio_name + "/edge";
  const std::string m_gpio_value_path = "/sys/class/gpio/gpio" + m_gpio_name + "/value";

  bool m_gpio_failure_logged = false;  // the last set-up was in vain
  int64_t m_permission_end_ns = 0;     // of the wait after an export
  int64_t m_line_active_ns = 0;        // the line announced something, was probed, or control was switched on
  int64_t m_slice_end_ns = 0;
  int64_t m_first_failure_ns = 0;  // of those one after the other; 0: the last transfer worked
  int64_t m_last_failure_ns = 0;
  bool m_failure_told = false;
};

}  // namespace ecu::koru::gpspub
