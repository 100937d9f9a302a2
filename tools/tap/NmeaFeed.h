#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tap/Output.h"

namespace ecu::koru::tap {

/// Hands the NMEA sentences of each fix to other programs on the main thread, so that the delivery of
/// messages never waits for them.
class NmeaFeed : public Output {
 public:
  [[nodiscard]] std::vector<std::string> topics() const override;
  /// Keeps the sentences for serve(). Drops them if the main thread is far behind.
  void take(const Arrival& arrival) final;
  void add_waits(std::vector<pollfd>& waits) const override;
  void serve() final;
  /// Returns true: a client would be dropped, and a receiver does not send a drive at once.
  [[nodiscard]] bool needs_pace() const override { return true; }
  /// Hands over the last sentences.
  void close() override { serve(); }
  [[nodiscard]] std::string problem() const override { return m_problem; }

 protected:
  /// Writes whole sentences, or does its other work if there are none. Never waits.
  virtual void hand_over(std::string_view sentences) = 0;
  /// To be called in open(), with what failed. Returns false.
  bool fail(std::string problem);

 private:
  mutable tool::Event m_arrived;
  std::mutex m_mutex;
  std::string m_sentences;  // that are not handed over yet
  std::string m_problem;
};

}  // namespace ecu::koru::tap
