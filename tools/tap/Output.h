#pragma once

#include <poll.h>

#include <cstdint>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "platform/com/Transport.h"
#include "tools/common/StopSignals.h"
#include "tools/tap/Arrival.h"
#include "tools/tap/Recording.h"

namespace ecu::koru::tap {

class Player;

/// One use of the messages: shown, logged, exported or counted. The main thread owns it, opens it before the
/// first message and closes it after the last one. Messages come on one thread at a time: the transport's
/// delivery thread, or the main thread while a recording is read.
class Output : public com::ISubscriptionObserver {
 public:
  static constexpr int64_t NEVER = std::numeric_limits<int64_t>::max();

  /// Returns the MQTT topic filters of the messages it takes.
  [[nodiscard]] virtual std::vector<std::string> topics() const = 0;
  /// Opens sockets, and finds out whether files can be written. Returns false if that fails; problem() then
  /// says why.
  [[nodiscard]] virtual bool open() { return true; }
  /// Called once before the first message, and only if there is a broker or a recording. `live`: the messages
  /// come from the bus, and time goes on between them; otherwise they come from a recording.
  virtual void begin(const Moment& /*beginning*/, bool /*live*/) {}
  /// Takes a message that matches topics(), once. Not called any more once finished() is raised.
  virtual void take(const Arrival& arrival) = 0;
  /// Writes what comes after the last message. Called on the main thread after end(), also after a failure.
  virtual void close() {}

  /// Adds what the main thread must wait for on its behalf, besides finished().
  virtual void add_waits(std::vector<pollfd>& /*waits*/) const {}
  /// Returns when serve() is due even if nothing of add_waits() is ready: steady clock, NEVER if at no time.
  [[nodiscard]] virtual int64_t due_ns() const { return NEVER; }
  /// Called on the main thread when one of its waits is ready or its time has come; it may also be called
  /// without a cause.
  virtual void serve() {}

  /// Returns true if a recording is played at its own speed unless another one is asked for, because someone
  /// watches.
  [[nodiscard]] virtual bool needs_pace() const { return false; }

  /// Called once before a recording is played, on the main thread. `player` lives until after close(); `name`
  /// is the recording's.
  virtual void follow(Player& /*player*/, const std::string& /*name*/) {}
  /// Returns true if the run goes on after the end of the recording, because someone looks at it.
  [[nodiscard]] virtual bool outlasts_recording() const { return false; }

  /// Is raised when it takes no more messages: it has all it wanted, failed, or its reader went away.
  [[nodiscard]] const tool::Event& finished() const { return m_finished; }
  /// Returns what failed, for "satnav-tap: ..."; empty if nothing did. Valid after finished() or open().
  [[nodiscard]] virtual std::string problem() const { return {}; }

  /// Lets messages of the bus wait as long as the result lives.
  [[nodiscard]] std::unique_lock<std::mutex> hold() { return std::unique_lock(m_taking); }
  /// Calls begin(). Messages that come before are lost, unless they wait.
  void start(const Moment& beginning, bool live);
  /// Takes a message of the bus, and leaves out the further copies that come because it matches several
  /// filters.
  void message(const std::string& topic, const com::Message& message) final;
  /// Takes a message of a recording, if it matches topics().
  void deliver(const Arrival& arrival);
  /// No take() follows. Returns false if one is still under way after a second, because a reader does not
  /// read.
  [[nodiscard]] bool end();

 protected:
  void finish() { m_finished.raise(); }

 private:
  tool::Event m_finished;
  std::mutex m_taking;  // held during take()
  bool m_started = false;
  bool m_ended = false;
  uint64_t m_last_ns = 0;  // arrival of the newest message
  std::string m_last_topic;
};

/// Returns "cannot write FILE: No space left on device"; without a name "cannot write: ...".
[[nodiscard]] std::string cannot_write(const std::string& name, int error);

}  // namespace ecu::koru::tap
