#pragma once

#include <mutex>
#include <string>

#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"
#include "platform/com/Transport.h"
#include "proto/nvxproto.pb.h"

namespace ecu::koru::gpspub {

/// Keeps the latest time zone of "system/time/timezone". A zone stays in force until the next one.
class TimeZoneObserver final : public com::ISubscriptionObserver {
 public:
  struct TimeZoneInfo {
    int hour_offset = 0;    // local time minus UTC, whole hours
    int minute_offset = 0;  // additional minutes
    bool summer_time = false;
    pb::TimeZone_Source source = pb::TimeZone_Source_NONE;  // NONE: no zone is known
  };

  static inline const std::string& topic_timezoneinfo = topic::TIME_ZONE;

  /// Delivery thread. A message that cannot be decoded changes nothing.
  void message(const std::string& topic, const com::Message& message) override;

  // Any thread; the four values of one zone stay together.
  void getTimeZoneInfo(TimeZoneInfo& out) const;
  void setTimeZoneInfo(int hourOffset, int minuteOffset, bool summerTime, pb::TimeZone_Source source);

 private:
  com::PbInternalMessageAdapter<pb::TimeZone> m_adapter{1};
  mutable std::mutex m_mutex;
  TimeZoneInfo m_time_zone;
};

}  // namespace ecu::koru::gpspub
