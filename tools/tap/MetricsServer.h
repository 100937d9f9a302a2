#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/com/Topics.h"
#include "proto/nvxproto.pb.h"
#include "tools/tap/ListenAddress.h"
#include "tools/tap/Output.h"
#include "tools/tap/Statistics.h"

namespace ecu::koru::tap {

class HttpServer;

/// Serves the figures over HTTP at /metrics, on threads of its own.
class MetricsServer final : public Output {
 public:
  struct Options {
    ListenAddress address;
    std::string health_topic = topic::GNSS_HEALTH;
    std::optional<Position> reference;           ///< the true position; empty: the mean is taken
    std::vector<std::string> topics;             ///< MQTT topic filters, besides the health topic
    const com::ITransportClient* bus = nullptr;  ///< must live until close(); null: a recording is read
  };

  explicit MetricsServer(Options options);
  ~MetricsServer() override;
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  [[nodiscard]] std::vector<std::string> topics() const override;
  /// Begins to listen.
  [[nodiscard]] bool open() override;
  void begin(const Moment& beginning, bool live) override;
  void take(const Arrival& arrival) override;
  void close() override;
  [[nodiscard]] bool needs_pace() const override { return true; }
  [[nodiscard]] std::string problem() const override { return m_problem; }

 private:
  struct KeptHealth {
    pb::GnssHealth message;
    uint64_t arrival_ns = 0;
  };

  [[nodiscard]] std::string metrics() const;
  void listen();
  void stop();

  const Options m_options;
  std::string m_problem;
  std::unique_ptr<HttpServer> m_server;
  std::thread m_thread;
  std::atomic<bool> m_stopping = false;
  std::atomic<bool> m_ended = false;  // of m_thread
  mutable std::mutex m_mutex;         // guards the rest
  Statistics m_statistics;
  std::optional<KeptHealth> m_health;
  bool m_live = false;
  uint64_t m_newest_ns = 0;  // the latest arrival
};

}  // namespace ecu::koru::tap
