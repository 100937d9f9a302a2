// satnavd: takes the unit's position from its receiver to the vehicle.

#include <fcntl.h>
#include <malloc.h>
#include <mosquittopp.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "app/ApplyConfiguration.h"
#include "app/Options.h"
#include "app/UnitVariables.h"
#include "app/Version.h"
#include "core/GPSDClient.h"
#include "core/Unit.h"
#include "platform/base/Configuration.h"
#include "platform/base/ServiceManager.h"
#include "platform/com/Transport.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace {

using namespace ecu::koru;
namespace GnssUtils = ecu::koru::gpspub::GnssUtils;
using gpspub::GPSDClient;
using gpspub::LOG;

constexpr int STATUS_NO_CONFIGURATION = -1;
constexpr uint32_t DEFAULT_DEBUG_FLAGS = 1;
constexpr std::array<int, 2> STOP_SIGNALS{SIGINT, SIGTERM};

/// Holds the service that a stop signal ends; null before it exists and after the first signal.
std::atomic<GPSDClient*>& stopCell() {
  static std::atomic<GPSDClient*> cell{nullptr};
  return cell;
}

void setAction(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;  // without SA_RESTART: a signal ends a wait
  sigaction(signal, &action, nullptr);
}

/// The first stop signal ends the service in order, the next one ends the process.
void onStopSignal(int signal) {
  if (signal != SIGINT && signal != SIGTERM) return;
  if (GPSDClient* service = stopCell().exchange(nullptr)) service->stop();
  for (const int each : STOP_SIGNALS) setAction(each, SIG_DFL);
}

/// Opens those of the descriptors 0 to 2 that are closed. Otherwise a socket or the serial port could get
/// that number, and log records would be written to it.
void keepStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) == -1 && open("/dev/null", O_RDWR) != fd) std::_Exit(EXIT_FAILURE);
  }
}

/// A hang-up of the serial port or a peer that closes its end must not end the process.
void ignoreHangUps() {
  setAction(SIGHUP, SIG_IGN);
  setAction(SIGPIPE, SIG_IGN);
}

void registerSignalHandler() {
  LOG.debug("Register unix signal handler");
  stopCell();
  for (const int each : STOP_SIGNALS) setAction(each, onStopSignal);
}

bool readConfiguration(const std::string& path, std::unique_ptr<config::Configuration>& config) {
  std::ifstream file(path);
  if (!file.is_open()) {
    LOG.error("Failed to find configuration file. Exiting!");
    return false;
  }
  config::set_config_from_input(config, file);
  return true;
}

void logBanner(const gpspub::Options& options, const std::string& config_path) {
  LOG.notice(gpspub::versionBanner());
  LOG.info("The configuration is that of ",
           logging::escaped(std::filesystem::absolute(config_path).string()));
  if (!options.config_path.empty()) {
    LOG.warning("-c ", logging::escaped(options.config_path), " has no effect: the configuration is always ",
                "satnavd.conf of the working directory or else /etc/satnavd/satnavd.conf");
  }
  if (GnssUtils::debugIt(gpspub::logflag::START_UP)) LOG.debug("log flags ", GnssUtils::logFlags());
}

/// Returns to the system the memory that a large set of parameters needed; the heap would keep it for good.
void returnFreeMemory() {
  malloc_trim(0);
}

/// Logs the counts of records that were kept back or lost, whichever way main() ends.
struct LastRecords {
  ~LastRecords() { logging::tell_all_kept_back(); }
};

/// If the transport's thread is stuck inside the operating system (a name lookup), nothing may be cleaned
/// up under it: the process ends here.
void stopTransport(com::ITransportClient& transport, int exit_status) {
  if (transport.stop()) return;
  logging::tell_all_kept_back();
  std::_Exit(exit_status);
}

}  // namespace

int main(int argc, char** argv) {
  keepStandardDescriptors();
  ignoreHangUps();
  const LastRecords last_records;
  GnssUtils::initDuration();

  gpspub::Options options;
  if (gpspub::parse_opts(argc, argv, options) == 0) {
    gpspub::usage();
    return EXIT_FAILURE;
  }
  logging::configure_logging(options.log_level);
  GnssUtils::setLogFlags(options.debug_flags);
  mosqpp::lib_init();

  auto config = std::make_unique<config::Configuration>();
  const std::string config_path = gpspub::satnavdConfigpath();
  if (!readConfiguration(config_path, config)) return STATUS_NO_CONFIGURATION;
  registerSignalHandler();
  gpspub::registerKeys(*config);
  if (!config->verify()) return EXIT_FAILURE;
  const gpspub::Settings settings = gpspub::readSettings(*config);
  if (!options.log_to_stdout) gpspub::applyLogMode(settings);
  gpspub::applySignalDatabase(settings);

  auto transport = com::create_client(config, com::TransportType::MQTT);
  const std::string health_topic = gpspub::healthTopic(settings);
  if (!health_topic.empty())
    transport->set_last_will(health_topic, gpspub::healthLastWill(gpspub::versionText()));
  transport->connect();
  transport->start();

  const auto unit = gpspub::readUnitVariables(transport);
  if (!unit) {
    stopTransport(*transport, EXIT_FAILURE);
    mosqpp::lib_cleanup();
    return EXIT_FAILURE;
  }
  const std::string device =
      gpspub::Unit::chooseDevice(options.device, unit->simulation, settings.gnss_device, unit->hwversion);

  auto service = std::make_unique<GPSDClient>(transport, unit->hwvariant, unit->hasgnss, unit->hwversion,
                                              device, gpspub::unitHardware(settings));
  service->readSysparams();
  stopCell() = service.get();
  if (options.debug_flags != DEFAULT_DEBUG_FLAGS) service->enableLoggingControl();
  gpspub::applyConfiguration(options, settings, *service);
  service->setServiceManager(ServiceManager::from_environment());
  service->setHealthTopic(health_topic, gpspub::versionText());
  logBanner(options, config_path);
  returnFreeMemory();

  service->run();

  service->disconnect();
  service.reset();
  stopTransport(*transport, EXIT_SUCCESS);
  transport.reset();
  mosqpp::lib_cleanup();
  config.reset();
  return EXIT_SUCCESS;
}
