#pragma once

#include <cstdint>
#include <string>

#include "input/IGnssInput.h"
#include "ublox/AntennaSupervision.h"
#include "ublox/IReceiverOwner.h"
#include "ublox/UbloxConfig.h"
#include "wire/UbxFrame.h"

namespace ecu::koru::gpspub {

/// Handles the UBX messages of the receiver. A CFG or MON payload that is too short is logged and changes
/// nothing. Service thread only.
class UbxReception {
 public:
  UbxReception(IGnssInput& input, UbloxConfig& config, AntennaSupervision& antenna, IReceiverOwner& owner);

  /// Sets the rate that the receiver is to have, in bit/s.
  void setBaudRate(uint32_t baud) { m_baud_rate = baud; }

  /// Takes the frame at the front of the input, which framing has checked. Returns its length, or -1 if the
  /// item is not a frame.
  [[nodiscard]] int readUbloxMessage();
  /// Dispatches that frame by class and id.
  void processUbloxMessage();
  /// Returns the receiver's software version as MON-VER gives it, escaped; empty before that.
  [[nodiscard]] const std::string& softwareVersion() const { return m_software_version; }

 private:
  void processNav(const UbxFrame& frame);
  void processAck(const UbxFrame& frame);
  void processCfg(const UbxFrame& frame);
  void processMon(const UbxFrame& frame);
  void process_MON_VER(const UbxFrame& frame);
  void process_CFG_NAV5(const UbxFrame& frame) const;
  void process_CFG_PRT(const UbxFrame& frame);
  void process_CFG_GNSS(const UbxFrame& frame);
  void process_MON_GNSS(const UbxFrame& frame);
  void changeBaudRate(uint32_t reported);
  [[nodiscard]] bool checkSpiGpioConnection(const UbxFrame& frame);

  IGnssInput& m_input;
  UbloxConfig& m_config;
  AntennaSupervision& m_antenna;
  IReceiverOwner& m_owner;
  uint32_t m_baud_rate = 9600;
  const unsigned char* m_ublox_message = nullptr;
  int m_ublox_length = 0;
  uint8_t m_timeutc_valid = 0;  // of the last NAV-TIMEUTC; nothing reads it
  bool m_mon_ver_received = false;
  std::string m_software_version;
};

}  // namespace ecu::koru::gpspub
