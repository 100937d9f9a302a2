#pragma once

#include <cstdint>
#include <ctime>
#include <span>
#include <string>
#include <vector>

#include "nmea/GnssInfo.h"

namespace ecu::koru::gpspub {

/// The operations that the epoch assembly needs from the service.
class IEpochOwner {
 public:
  virtual ~IEpochOwner() = default;
  /// Called when the epoch is over. Publishes its record and sentences, then calls EpochAssembly::rotate().
  virtual void publishGnssData() = 0;
  /// Called when the record holds a UTC time. Sets the system clock if that is still to be done.
  virtual void checkSetSystemTime() = 0;
};

/// What the epoch assembly has taken in and given out since it was made.
struct EpochCounts {
  uint64_t sentences = 0;  ///< well formed, with a right checksum
  uint64_t rejected = 0;   ///< lines that are not
  uint64_t rmc = 0;        ///< RMC sentences
  uint64_t complete = 0;   ///< epochs that ended with their GST
  uint64_t incomplete = 0;
};

/// Collects the sentences of one navigation epoch into one fix, decides when the epoch is complete, and knows
/// when the run loop must close a frame whose last sentence never came.
///
/// Owned by the service; service thread only. Times ending in _us come from stopwatch 0; it reads no clock.
class EpochAssembly {
 public:
  explicit EpochAssembly(IEpochOwner& owner);

  /// Sets the time at which the next data was read, as stopwatch 0 shows it and in nanoseconds since boot.
  void setDataTime(int64_t data_time_us, int64_t data_time_ns);

  /// Checks one framed line (NUL in place of its LF) and takes it over. Returns false if it is rejected.
  [[nodiscard]] bool validateNmeaMessage(std::span<const unsigned char> line);
  /// Parses the line taken over and publishes the epoch if it is complete. `baud` is the port's speed, bit/s.
  void processNewNmeaString(unsigned baud);

  /// Returns true if the frame must be closed now: a published second was not sent yet, or the last frame
  /// left more than 1 s ago (1.3 s while an epoch is in progress).
  [[nodiscard]] bool isTimeoutToSendFrame(int64_t now_us) const;
  /// Returns true if a frame leaves now. A published fix of a new UTC second leaves at once. One whose second
  /// has left already, or that has no date, leaves only if the last frame left more than 0.95 s ago. Without
  /// a published fix isTimeoutToSendFrame() decides, but it is not asked within 1.3 s after a complete epoch
  /// was published, whether or not its fix left, because the next burst may be late. Nor is it asked within
  /// 0.3 s of the first sentence of an epoch in progress. This becomes 1.3 s while received data waits to be
  /// processed (`more_received`), so that a service that got no processor time does not cut the epoch short.
  [[nodiscard]] bool isFrameDue(int64_t now_us, bool more_received) const;
  /// Returns the time from which isFrameDue() is true if nothing is published and no sentence comes.
  [[nodiscard]] int64_t frameDue(bool more_received) const;
  /// Notes that a frame was sent now; `utc` is the time of its record.
  void frameSent(int64_t now_us, const std::tm& utc);
  /// Withholds the published fix from the vehicle's buses.
  void holdBack() { m_frame_published = false; }

  /// Ends the epoch: copies the live record to the published one, drops the sentences, clears the live one.
  void rotate(uint8_t receiver_flag);
  /// Forgets everything that was collected and published, so that old data never becomes a new fix.
  void reset(int64_t now_us);

  [[nodiscard]] const EpochCounts& counts() const { return m_counts; }
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
  [[nodiscard]] bool isComplete() const;
  void keepSentence();
  void dropSentences();
  [[nodiscard]] int64_t frameTimeout() const;
  void logFrameTimeout(int64_t now_us) const;

  IEpochOwner& m_owner;
  GnssInfo m_gnss_info;       // being filled
  GnssInfo m_gnss_info_sent;  // copy taken at publication

  std::vector<std::string> m_nmea_list;
  std::vector<std::string> m_spare_strings;  // kept to reuse their memory
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
  int64_t m_sent_utc_second = -1;  // of the dated frame that left last
  EpochCounts m_counts;
  int64_t m_complete_published_us = -1;  // when the last epoch was published if it was complete, else -1
};

}  // namespace ecu::koru::gpspub
