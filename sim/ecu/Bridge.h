#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/com/Transport.h"
#include "platform/rt/Signals.h"

namespace ecu::koru::sim {

/// The vehicle's CAN between two units: the second receives the frames of the groups that the first
/// publishes. Only a frame's bytes cross; they get a new envelope with a new time stamp. Retained messages
/// are old and do not cross. message() runs on the delivery thread of the first unit's connection, the rest
/// on the main thread.
class Bridge final : public com::ISubscriptionObserver {
 public:
  /// The most frames that wait at a time. Frames beyond that are dropped.
  static constexpr size_t CAPACITY = 4096;
  /// How long a due frame waits while the broker takes no more. Then it is dropped.
  static constexpr int64_t PATIENCE_NS = 1'000'000'000;

  struct Options {
    std::string from_prefix{};  ///< before the topics of the unit that sends
    std::string to_prefix{};    ///< before the topics of the unit that receives
    double loss = 0;            ///< probability, 0 to 1
    uint64_t seed = 1;          ///< the same seed and the same frames give the same losses
    int64_t delay_ns = 0;       ///< of every frame
  };

  /// The two topics of a group, and the counts of what happened to its messages.
  struct Route {
    std::string name;  ///< of the group
    std::string from;  ///< a topic without prefix, as is `to`
    std::string to;
    uint64_t carried = 0;
    uint64_t lost = 0;       ///< by Options::loss
    uint64_t dropped = 0;    ///< the other broker was away or full, or too many waited
    uint64_t malformed = 0;  ///< could not be decoded as this group
  };

  /// Carries every group of the signal database in use that has both topics. `to` must outlive the bridge.
  /// `on_waiting` is called on the delivery thread if send_due() must be called earlier than it said.
  Bridge(const Options& options, com::ITransportClient& to, std::function<void()> on_waiting);

  /// Returns the topics to subscribe to at the sending unit.
  [[nodiscard]] std::vector<std::string> topics() const;

  void message(const std::string& topic, const com::Message& message) override;

  /// Sends every frame that is due, in order. Returns the ns after which it must be called again; empty if
  /// no frame waits.
  [[nodiscard]] std::optional<int64_t> send_due();

  /// Takes and sends no more frames. Waiting frames are dropped.
  void stop();

  [[nodiscard]] std::vector<Route> routes() const;

 private:
  struct Waiting {
    int64_t due_ns;  // steady clock
    size_t route;
    rt::SignalGroup group;
  };
  enum class Outcome { CARRIED, DROPPED, LATER };

  void take(size_t route, rt::SignalGroup group);
  [[nodiscard]] std::optional<Waiting> first() const;
  [[nodiscard]] Outcome send(const Waiting& frame, int64_t now_ns);

  const Options m_options;
  com::ITransportClient& m_to;
  const std::function<void()> m_on_waiting;
  std::mt19937_64 m_random;  // only for the delivery thread

  mutable std::mutex m_mutex;  // guards the members below; names and topics never change
  std::vector<Route> m_routes;
  std::deque<Waiting> m_waiting;
  bool m_stopped = false;
};

}  // namespace ecu::koru::sim
