#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "tools/tap/Arrival.h"
#include "tools/tap/Decode.h"
#include "tools/tap/Sky.h"

namespace ecu::koru::tap::live {

/// A body with its arrival, ns since boot.
template <typename T>
struct Latest {
  T body;
  uint64_t boot_ns = 0;
};

/// The messages of one topic. A retained message is old, so it counts for nothing but its content.
struct TopicState {
  uint64_t messages = 0;
  uint64_t undecodable = 0;
  std::deque<uint64_t> arrivals;  ///< the newest ones, ns since boot
  uint64_t longest_gap_ns = 0;
  std::optional<uint64_t> delay_ns;  ///< from the newest one's envelope; empty if its clock is another one
  std::string problem;               ///< why the newest undecodable one is that
  std::optional<Latest<rt::SignalGroup>> group;

  /// Returns messages a second over the newest arrivals; 0 before the second one.
  [[nodiscard]] double rate_hz() const;
};

/// All that the screen knows: the newest content of each topic, and how the messages come. A plain value that
/// has no clock; copying it freezes the screen.
class Model {
 public:
  void take(const Arrival& arrival, const Decoded& decoded);

  [[nodiscard]] const std::optional<Latest<pb::GnssData>>& fix() const { return m_fix; }
  /// The newest sky with satellites in view: not every fix has GSV sentences.
  [[nodiscard]] const std::optional<Latest<Sky>>& sky() const { return m_sky; }
  [[nodiscard]] const std::optional<Latest<pb::GnssHealth>>& health() const { return m_health; }
  [[nodiscard]] const std::optional<Latest<pb::TimeZone>>& zone() const { return m_zone; }
  [[nodiscard]] const std::optional<Latest<pb::GnssSource>>& source() const { return m_source; }
  [[nodiscard]] const std::map<std::string, TopicState, std::less<>>& topics() const { return m_topics; }
  /// Returns null if nothing of the topic has come.
  [[nodiscard]] const TopicState* topic(std::string_view name) const;
  /// Returns the first byte of a system signal; empty if it has not come.
  [[nodiscard]] std::optional<uint64_t> signal(std::string_view topic) const;
  [[nodiscard]] uint64_t undecodable() const { return m_undecodable; }
  /// Returns the messages of topics beyond the limit, which does not apply to the topics of the unit.
  [[nodiscard]] uint64_t left_out() const { return m_left_out; }

 private:
  template <typename T>
  void keep(const T& body, uint64_t boot_ns);
  void keep_sky(const pb::GnssData& fix, uint64_t boot_ns);
  TopicState* state_of(std::string_view topic, bool of_unit);

  std::optional<Latest<pb::GnssData>> m_fix;
  std::optional<Latest<Sky>> m_sky;
  std::optional<Latest<pb::GnssHealth>> m_health;
  std::optional<Latest<pb::TimeZone>> m_zone;
  std::optional<Latest<pb::GnssSource>> m_source;
  std::map<std::string, TopicState, std::less<>> m_topics;
  uint64_t m_undecodable = 0;
  uint64_t m_left_out = 0;
};

}  // namespace ecu::koru::tap::live
