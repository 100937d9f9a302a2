#pragma once

#include <cstdint>
#include <ctime>
#include <span>
#include <string>
#include <vector>

#include "nmea/GnssInfo.h"

namespace ecu::koru::gpspub {

/// What the epoch assembly asks of the service.
class IEpochOwner {
 public:
  virtual ~IEpochOwner() = default;
  /// The epoch is over: publish its record and sentences, then EpochAssembly::rotate().
  virtual void publishGnssData() = 0;
  /// The record holds a UTC time: set the system clock if that is still to be done.
  virtual void checkSetSystemTime() = 0;
};

/// Collects the sentences of one navigation epoch into one fix, decides when the epoch is complete, and knows
/// when the run loop must close a frame whose last sentence never came.
///
/// Owned by the service, service thread only. Times ending in _us are those of stopwatch 0; it reads no clock
/// itself.
class EpochAssembly {
 public:
  explicit EpochAssembly(IEpochOwner& owner);

  /// When the data that is processed next was read.
  void setDataTime(int64_t data_time_us, int64_t data_time_ns);

  /// Checks one framed line (with NUL in the place of its LF) and takes it over. False: rejected.
  [[nodiscard]] bool validateNmeaMessage(std::span<const unsigned char> line);
  /// Parses the line taken over and publishes the epoch when it is complete. `baud` is the line's speed in
  /// bit/s.
  void processNewNmeaString(unsigned baud);

  /// True when the frame must be closed now: a published second was not sent yet, a second passed without any
  /// sentence, or 1.3 s with an incomplete epoch.
  [[nodiscard]] bool isTimeoutToSendFrame(int64_t now_us) const;
  /// True when a frame leaves now. A published fix of a new UTC second does; one whose second has left
  /// already, or that has no date, does so only when more than 0.95 s have passed since the last frame.
  /// Without a published fix it is isTimeoutToSendFrame() with patience. The silence after a complete epoch
  /// counts from 1.3 s after its publication, whether or not its fix left, because the next burst may be
  /// late. An epoch in progress is given 0.3 s from its first sentence, and 1.3 s while more was received
  /// than has been processed (`more_received`): a service that got no processor time must not tear it.
  [[nodiscard]] bool isFrameDue(int64_t now_us, bool more_received) const;
  /// The frame counts as sent now; `utc` is the time of the record that was sent.
  void frameSent(int64_t now_us, const std::tm& utc);
  /// The published fix does not leave, now or later.
  void holdBack() { m_frame_published = false; }

  /// Ends the epoch: the record moves to the published one, the sentences are dropped, the live record starts
  /// anew.
  void rotate(uint8_t receiver_flag);
  /// Forgets everything that was collected and published, so that nothing old is ever a new fix.
  void reset(int64_t now_us);

  [[nodiscard]] GnssInfo& info() { return m_gnss_info; }
  [[nodiscard]] GnssInfo& infoSent() { return m_gnss_info_sent; }
  [[nodiscard]] std::vector<std::string>& sentences() { return m_nmea_list; }
  [[nodiscard]] bool framePublished() const { return m_frame_published; }
  [[nodiscard]] int64_t lastNmeaTime() const { return m_last_nmea_time; }
  [[nodiscard]] int64_t frameSentTimeStamp() const { return m_frame_sent_time_stamp; }

 private:
  void parseNmeaString();
  void publishOverdueEpoch();
  void startEpoch(unsigned baud);
  void keepSentence();
  void dropSentences();
  void logFrameTimeout(int64_t now_us) const;

  IEpochOwner& m_owner;
  GnssInfo m_gnss_info;       // being filled
  GnssInfo m_gnss_info_sent;  // copy taken at publication

  std::vector<std::string> m_nmea_list;
  std::vector<std::string> m_spare_strings;  // memory of earlier sentences, used again
  std::string m_nmea_string;                 // with its CR LF

  bool m_GST_received = false;
  bool m_RMC_received = false;
  int64_t m_data_time_us = 0;
  int64_t m_data_time_ns = 0;
  int64_t m_rmc_time = 0;
  int64_t m_prev_rmc_time = 0;
  int64_t m_last_nmea_time = 0;
  int64_t m_frame_start_time = 0;  // 0: no epoch in progress
  int64_t m_prev_frame_start_time = 0;
  int64_t m_frame_sent_time_stamp = 0;
  bool m_frame_published = false;
  uint8_t m_frame_second = 0xFF;
  int64_t m_sent_utc_second = -1;        // of the dated frame that left last
  int64_t m_complete_published_us = -1;  // when the last publication was a complete epoch; -1: it was not
};

}  // namespace ecu::koru::gpspub
