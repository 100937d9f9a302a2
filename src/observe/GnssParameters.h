#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "platform/com/Topics.h"

namespace ecu::koru::gpspub {

/// The changes that the system parameters and the observer make in the service.
class IGnssControl {
 public:
  virtual ~IGnssControl() = default;
  virtual void setGnssOn(bool on) = 0;
  virtual void setGnssAntennaOn(bool on) = 0;
  /// Sets or clears one bit of the wanted constellations: 0x01 GPS, 0x02 GLONASS, 0x04 BeiDou, 0x08 Galileo.
  virtual void setGnssSystem(uint32_t bit, bool on) = 0;
  virtual void setRadioSilence(bool on) = 0;
  virtual void setHwVersion(const std::string& version) = 0;
  /// Configures the receiver anew, from the first command.
  virtual void restartSequence() = 0;
};

/// A system parameter that is read at the start and followed on the bus afterwards. The first byte of its
/// value is 1 for on.
struct GnssParameter {
  uint32_t id;
  const std::string& topic;  // of its changes
  const char* name;          // in the record of the start
  const char* change_text;   // of the record of a change
  bool restarts;             // a change configures the receiver anew
  void (*apply)(IGnssControl& control, bool on);
};

/// In the order in which they are read.
inline const std::array<GnssParameter, 6> GNSS_PARAMETERS{
    {{0xA01F, topic::PARAMETER_GPS, "GPS On", "GnssObserver::GPS = ", true,
      [](IGnssControl& control, bool on) { control.setGnssSystem(0x01, on); }},
     {0xA020, topic::PARAMETER_GLONASS, "GLONASS On", "GnssObserver::GLONASS = ", true,
      [](IGnssControl& control, bool on) { control.setGnssSystem(0x02, on); }},
     {0xA022, topic::PARAMETER_BEIDOU, "BEIDOU On", "GnssObserver::BEIDOU = ", true,
      [](IGnssControl& control, bool on) { control.setGnssSystem(0x04, on); }},
     {0xA021, topic::PARAMETER_GALILEO, "GALILEO On", "GnssObserver::GALILEO = ", true,
      [](IGnssControl& control, bool on) { control.setGnssSystem(0x08, on); }},
     {0xA00F, topic::PARAMETER_GNSS_ON, "GNSSOn", "GPSDClient.m_gnss_on = ", false,
      [](IGnssControl& control, bool on) { control.setGnssOn(on); }},
     {0xA060, topic::PARAMETER_ANTENNA_ON, "GNSSAntennaOn", "GPSDClient.setGnssAntennaOn = ", true,
      [](IGnssControl& control, bool on) { control.setGnssAntennaOn(on); }}}};

}  // namespace ecu::koru::gpspub
