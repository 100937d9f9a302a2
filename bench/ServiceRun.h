#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/ProcessFigures.h"
#include "platform/com/Topics.h"
#include "platform/com/Transport.h"
#include "support/Broker.h"
#include "tools/common/BusConnection.h"

namespace bench {

/// A GST sentence without its CR LF, unique by its time, and when it was sent or received by CLOCK_MONOTONIC.
struct Sighting {
  std::string gst;
  int64_t at_ns;
};

[[nodiscard]] bool isGst(std::string_view sentence);

/// A position that the service published.
struct Publication {
  int status;
  int64_t at_ns;  ///< since boot, by the service's own stamp
};

struct ServiceOptions {
  std::string device;
  unsigned baud = 38400;
  test::Words unit{};                                      ///< further options of ecu-sim
  std::string subscription = ecu::koru::topic::GNSS_DATA;  ///< of the subscriber
  std::string config{};                                    ///< further lines of the service's configuration
  std::string notify_socket{};                             ///< of the service manager; empty: none
};

/// The running service of this build among what it needs: a private broker, the state of the rest of the
/// unit, and one subscriber. Everything ends with the object. Functions throw std::runtime_error with the
/// reason if they fail, and after a signal that ends the program. Needs mosqpp::lib_init().
class ServiceRun {
 public:
  explicit ServiceRun(const ServiceOptions& options);
  ~ServiceRun();
  ServiceRun(const ServiceRun&) = delete;
  ServiceRun& operator=(const ServiceRun&) = delete;

  /// Waits for the next fix, and then until the service waits for the one after it. A fix is a position that
  /// holds a GST sentence.
  void awaitFix() const;

  [[nodiscard]] ProcessFigures figures() const;
  /// Returns all positions that have arrived at the subscriber, with or without a fix.
  [[nodiscard]] std::vector<Publication> publications() const;
  [[nodiscard]] std::vector<Sighting> fixes() const;
  /// Returns what the service wrote, for the text of a failure.
  [[nodiscard]] std::string said() const { return m_service->out() + m_service->err(); }
  /// Returns the subscriber's connection to the bus.
  [[nodiscard]] ecu::koru::com::ITransportClient& bus() const { return m_bus->transport(); }
  [[nodiscard]] test::Broker& broker() { return m_broker; }
  [[nodiscard]] test::Process& process() { return *m_service; }

 private:
  class Subscriber;

  void startUnit(const test::Words& options) const;
  void subscribe(const std::string& topic);
  void startService(const ServiceOptions& options);

  test::TempDir m_folder;
  test::Broker m_broker;
  std::shared_ptr<Subscriber> m_subscriber;
  std::unique_ptr<ecu::koru::tool::BusConnection> m_bus;
  std::unique_ptr<test::Process> m_service;
};

}  // namespace bench
