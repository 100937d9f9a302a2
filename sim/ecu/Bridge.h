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

/// The vehicle's CAN between two units: what one publishes as a group's frame, the other receives. Only the
/// frame's bytes cross, in an envelope of its own time; what the broker had retained is no frame of now and
/// does not. message() belongs to the first unit's delivery thread, the rest to the main thread.
class Bridge final : public com::ISubscriptionObserver {
 public:
  /// Frames that wait at a time; what comes beyond is dropped.
  static constexpr size_t CAPACITY = 4096;
  /// How long a frame waits when it is due and the broker takes no more. Older ones are dropped.
  static constexpr int64_t PATIENCE_NS = 1'000'000'000;

  struct Options {
    std::string from_prefix{};  ///< before the topics of the unit that sends
    std::string to_prefix{};    ///< before the topics of the unit that receives
    double loss = 0;            ///< probability, 0 to 1
    uint64_t seed = 1;          ///< the same seed and the same frames give the same losses
    int64_t delay_ns = 0;       ///< of every frame
  };

  /// What became of a group's messages.
  struct Route {
    std::string name;  ///< the group's
    std::string from;  ///< topics, without prefix
    std::string to;
    uint64_t carried = 0;
    uint64_t lost = 0;       ///< by Options::loss
    uint64_t dropped = 0;    ///< the other broker was away or full, or too many waited
    uint64_t malformed = 0;  ///< no group of this topic
  };

  /// For every group of the signal database in use that has both topics. `to` must outlive the bridge;
  /// `on_waiting` is called on the delivery thread when send_due() is wanted earlier than it said.
  Bridge(const Options& options, com::ITransportClient& to, std::function<void()> on_waiting);

  /// What has to be subscribed at the unit that sends.
  [[nodiscard]] std::vector<std::string> topics() const;

  void message(const std::string& topic, const com::Message& message) override;

  /// Sends every frame whose time has come, in order. After how many ns it has to be called again; nothing
  /// when no frame waits.
  [[nodiscard]] std::optional<int64_t> send_due();

  /// Takes and sends no more; frames that wait are dropped.
  void stop();

  [[nodiscard]] std::vector<Route> routes() const;

 private:
  struct Waiting {
    int64_t due_ns;  // steady
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
  std::mt19937_64 m_random;  // of the delivery thread

  mutable std::mutex m_mutex;  // of what follows; names and topics never change
  std::vector<Route> m_routes;
  std::deque<Waiting> m_waiting;
  bool m_stopped = false;
};

}  // namespace ecu::koru::sim
