#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>

#include "nmea/GnssInfo.h"
#include "platform/com/Topics.h"
#include "platform/com/Transport.h"
#include "platform/rt/Signals.h"

namespace ecu::koru::gpspub {

/// The wait of the service thread for the next frame.
class IFrameWait {
 public:
  virtual ~IFrameWait() = default;
  /// Waits for wake(), at most for `ns`; may return early. Returns false if the mode ends. Service thread.
  [[nodiscard]] virtual bool waitForFrame(int64_t ns) = 0;
  /// Ends the present wait, or the next one. Any thread.
  virtual void wake() = 0;
};

/// Rebuilds the fix of another unit from the signal groups that come over CAN, and paces its publication: the
/// time/date group comes last and releases the fix.
///
/// message() runs on the delivery thread, everything else on the service thread.
class GnssIcanObserver final : public com::ISubscriptionObserver {
 public:
  /// `wait` must outlive the observer.
  explicit GnssIcanObserver(IFrameWait& wait);

  static inline const std::string& topic_vp1_base = topic::VP1_RX;
  static inline const std::string& topic_p2c1_base = topic::P2C1_RX;
  static inline const std::string& topic_vp2_base = topic::VP2_RX;
  static inline const std::string& topic_vds_base = topic::VDS_RX;
  static inline const std::string& topic_timedate_var6 = topic::TD_RX;

  /// A group that cannot be used resets only its own fields. Retained messages, of unknown age, are ignored.
  void message(const std::string& topic, const com::Message& message) override;

  [[nodiscard]] GnssInfo getGnssInfo() const;
  [[nodiscard]] int32_t getGnssInfoStatus() const;
  /// Returns the record and, in the same step, clears its date, so that no date is used twice. Also cancels
  /// the release by a frame that came after timeoutToSendFrame() returned, because the record already holds
  /// its date.
  [[nodiscard]] GnssInfo takeGnssInfo();
  /// Nothing uses it.
  void clearInfo();
  /// Nothing uses it: takeGnssInfo() does the same in one step.
  void setDefault_timedate_var6();

  /// Starts anew: forgets everything received before. The first wait is 2 s at most.
  void restart();
  /// Waits for a time/date frame; one that came since the last call ends the wait at once. Returns true if
  /// none came in time; the next wait is then at most 999 ms, otherwise 1.7 s.
  [[nodiscard]] bool timeoutToSendFrame();

 private:
  /// A group of the bus and the functions that store or reset its signals.
  struct Group;
  static const std::array<Group, 5>& groups();

  // Called with the mutex held. The values are the group's signals, NaN if not available. Each returns false
  // if they make no sense.
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

  IFrameWait& m_wait;
  // Guards everything below. There is only one, because a date and its release are stored together and taken
  // together. Otherwise a release could find its date already taken.
  mutable std::mutex m_mutex;
  GnssInfo m_gnss_info;
  std::array<bool, 5> m_complained{};  // already warned of a group that stays bad
  bool m_released = false;
  int64_t m_send_period_ms;
  bool m_deadline_passed = true;
  int64_t m_last_wake_ns;  // steady clock
};

}  // namespace ecu::koru::gpspub
