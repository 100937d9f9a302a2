#include "sim/replay/ReplayedService.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "app/ApplyConfiguration.h"
#include "app/UnitVariables.h"
#include "app/Version.h"
#include "input/SerialInput.h"
#include "ublox/ReceiverLines.h"
#include "wire/ServiceLog.h"
#include "wire/Stopwatch.h"

namespace ecu::koru::sim {

namespace {

namespace fs = std::filesystem;

constexpr unsigned POWER_UP_BAUD = 9600;
constexpr double JUST_BOOTED_S = 60;
constexpr double LONG_SINCE_BOOT_S = 1000;
constexpr double NS_PER_S = 1e9;

}  // namespace

ResetLineFiles::ResetLineFiles(bool has_line) {
  std::string folder = (fs::temp_directory_path() / "satnavd-replay-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(),
                            "cannot make a folder in " + fs::temp_directory_path().string());
  m_root = folder;
  for (const std::string line : {"197", "121"}) {
    if (!has_line) break;
    fs::create_directory(fs::path(m_root) / ("gpio" + line));
    fs::create_symlink("/dev/null", fs::path(m_root) / ("gpio" + line) / "value");
  }
}

ResetLineFiles::~ResetLineFiles() {
  std::error_code ignored;
  fs::remove_all(m_root, ignored);
}

ReplayedService::ReplayedService(const LinkRecording& recording, Differences& differences, Publish publish,
                                 double uptime_s)
    : m_publish(std::move(publish)),
      m_link(recording, differences),
      m_time(static_cast<int64_t>(uptime_s * NS_PER_S), recording.begin_wall_us - m_link.begin_us()) {
  set_time_source(&m_time);
  gpspub::GnssUtils::initDuration();
  m_bus->hand_records_to([this](const com::MemoryTransport::Record& record) { published(record); });
}

ReplayedService::~ReplayedService() {
  m_service.reset();
  set_time_source(nullptr);
}

void ReplayedService::say(const std::vector<Publication>& publications) {
  for (const auto& each : publications) m_bus->inject(each.topic, each.message);
}

void ReplayedService::say_at(int64_t at_us, Publication publication) {
  m_time.at(at_us, [this, said = std::move(publication)] { m_bus->inject(said.topic, said.message); });
}

std::string ReplayedService::start(const ReplayOptions& options, const gpspub::Settings& settings) {
  gpspub::applySignalDatabase(settings);
  m_time.advance_to_us(m_link.first_try_us());  // the service connects to its broker
  std::shared_ptr<com::ITransportClient> transport = m_bus;
  const auto unit = gpspub::readUnitVariables(transport);
  if (!unit)
    return "an ECU variable is missing: hwvariant, hwversion and hasgnss are needed, from --var or --bus";
  const std::string device = gpspub::Unit::chooseDevice(options.service.device, unit->simulation,
                                                        settings.gnss_device, unit->hwversion);
  if (gpspub::Unit(unit->hwvariant, unit->hasgnss, unit->hwversion, device).isReceiverOnSpi())
    return "this unit's receiver is on SPI, whose recordings cannot be replayed; only serial ports can";

  m_lines = std::make_unique<ResetLineFiles>(!options.no_reset_line);
  auto input = std::make_unique<gpspub::SerialInput>(std::make_unique<VirtualTerminal>(m_time, m_link));
  input->setGnssDeviceName(device);
  gpspub::UnitHardware hardware;
  hardware.input = std::move(input);
  hardware.gpio_root = m_lines->root();
  m_service = std::make_unique<gpspub::GPSDClient>(transport, unit->hwvariant, unit->hasgnss, unit->hwversion,
                                                   device, std::move(hardware));
  m_service->readSysparams();
  if (options.service.debug_flags != gpspub::Options().debug_flags) m_service->enableLoggingControl();
  gpspub::GnssUtils::setLogFlags(options.service.debug_flags);
  gpspub::applyConfiguration(options.service, settings, *m_service);
  m_service->setHealthTopic(gpspub::healthTopic(settings), gpspub::versionText());
  return {};
}

void ReplayedService::published(const com::MemoryTransport::Record& record) {
  const timeval wall = m_time.wall();
  const int64_t wall_us = int64_t{wall.tv_sec} * 1'000'000 + wall.tv_usec;
  if (!m_stopped && !m_publish(record, m_time.now_us(), wall_us)) stop();
}

void ReplayedService::stop() {
  m_stopped = true;
  if (m_service) m_service->stop();
}

void ReplayedService::run(int64_t to_us) {
  if (m_stopped) return;
  const int64_t end_us = std::min(m_link.end_us(), to_us);
  m_time.at(end_us, [this] { m_service->stop(); });
  m_service->run();
  m_service->disconnect();
  if (!m_stopped && end_us == m_link.end_us()) m_link.finish();
}

double likely_uptime_s(const LinkRecording& recording) {
  const LinkRecording::Event& first = recording.events.front();
  const bool just_booted = first.kind == LinkRecording::Kind::opened && first.baud == POWER_UP_BAUD;
  return just_booted ? JUST_BOOTED_S : LONG_SINCE_BOOT_S;
}

}  // namespace ecu::koru::sim
