#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>

#include "nmea/GnssInfo.h"
#include "platform/com/Topics.h"
#include "platform/com/Transport.h"
#include "platform/rt/Signals.h"

namespace ecu::koru::gpspub {

/// Rebuilds the fix of another unit from the signal groups that come over CAN, and paces its publication: the
/// time/date group comes last and releases one.
///
/// message() runs on the delivery thread, timeoutToSendFrame() and the record's readers on the service
/// thread.
class GnssIcanObserver final : public com::ISubscriptionObserver {
 public:
  /// `keepWaiting` is asked ten times a second by timeoutToSendFrame(), on its thread.
  explicit GnssIcanObserver(std::function<bool()> keepWaiting = [] { return true; });

  static inline const std::string& topic_vp1_base = topic::VP1_RX;
  static inline const std::string& topic_p2c1_base = topic::P2C1_RX;
  static inline const std::string& topic_vp2_base = topic::VP2_RX;
  static inline const std::string& topic_vds_base = topic::VDS_RX;
  static inline const std::string& topic_timedate_var6 = topic::TD_RX;

  /// A group that cannot be used costs its own fields. What the broker had kept is of an unknown time and is
  /// not used at all.
  void message(const std::string& topic, const com::Message& message) override;

  [[nodiscard]] GnssInfo getGnssInfo() const;
  [[nodiscard]] int32_t getGnssInfoStatus() const;
  /// The record. In the same step its date is reset, so that none is used twice, and so is the release by a
  /// frame that came since timeoutToSendFrame() returned: its date is in this record.
  [[nodiscard]] GnssInfo takeGnssInfo();
  void clearInfo();
  void setDefault_timedate_var6();

  /// Starts anew: nothing received before counts, the first wait is 2 s.
  void restart();
  /// Waits for a time/date frame. False: it came, or had come since the last call; the next wait is 1.7 s at
  /// most. True: it did not come in time; the next wait is 999 ms at most.
  [[nodiscard]] bool timeoutToSendFrame();

 private:
  /// A group of the bus and what becomes of its signals.
  struct Group;
  static const std::array<Group, 5>& groups();

  // With the mutex held. The values are those of the group's signals, NaN: not available; false: they
  // make no sense.
  bool unpack_vp1_base(std::span<const double> values);
  bool unpack_vp2_base(std::span<const double> values);
  bool unpack_vds_base(std::span<const double> values);
  bool unpack_p2c1_base(std::span<const double> values);
  bool unpack_timedate_var6(std::span<const double> values);
  void setDefault_vp1_base();
  void setDefault_vp2_base();
  void setDefault_vds_base();
  void setDefault_p2c1_base();
  void resetTimeDate();

  void unpack(const Group& group, const com::Message& message);
  [[nodiscard]] bool takeSignals(const Group& group, const com::Message& message, std::span<double> values);
  void complain(const Group& group, const std::string& text);
  bool& complained(const Group& group);

  const std::function<bool()> m_keep_waiting;
  // Guards everything below. There is one only, because a date and the release that comes with it are stored
  // together and taken together: otherwise a release could find its date already taken.
  mutable std::mutex m_mutex;
  GnssInfo m_gnss_info;
  std::array<bool, 5> m_complained{};  // a group that stays bad is told once
  std::condition_variable m_wake;
  bool m_released = false;
  int64_t m_send_period_ms;
  bool m_deadline_passed = true;
  int64_t m_last_wake_ns;  // steady
};

}  // namespace ecu::koru::gpspub
