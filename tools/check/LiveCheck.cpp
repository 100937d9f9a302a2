#include "tools/check/LiveCheck.h"

#include "core/BusRequests.h"
#include "core/Unit.h"
#include "input/SPI.h"
#include "tools/check/BrokerCheck.h"
#include "tools/check/DeviceCheck.h"
#include "tools/check/LinkBudget.h"
#include "tools/check/UnitCheck.h"

namespace ecu::koru::check {

bool check_live(const File& file, const std::string& device, Report& report) {
  report.live = true;
  std::optional<UnitState> unit;
  if (check_broker(file, report)) unit = check_unit_state(file, report);
  const bool has_receiver = !unit || unit->hasgnss.empty() || unit->hasgnss == "true";
  if (unit) check_topics(file, !has_receiver, report);
  if (!has_receiver) {
    report.note("device", "receiver", "not looked for, the unit has none");
    return true;
  }
  if (!unit) {
    report.note("variables", "unknown", "without them: a unit with a receiver, no parameters");
    unit.emplace();
    unit->systems = gpspub::BusRequests().gnssSystemRequested();
  }
  const std::string path =
      gpspub::Unit::chooseDevice(device, unit->start.simulation, file.settings.gnss_device, unit->hwversion);
  gpspub::BaudRate rate;
  rate.set(file.settings.baud_rate);
  const bool ended = check_device(path, rate.bitsPerSecond(), report);
  if (file.settings.disable_hw_init.on || unit->start.simulation) {
    report.note("link", "messages", "not counted: the receiver is not configured by the service");
  } else if (path == gpspub::SPI::DEVICE) {
    report.note("link", "messages", "not counted: SPI has no baud rate");
  } else {
    check_link(file.settings, unit->start.period_ms, unit->systems, report);
  }
  return ended;
}

}  // namespace ecu::koru::check
