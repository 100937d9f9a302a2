#include "tools/check/LinkBudget.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <map>
#include <utility>

#include "input/BaudRate.h"
#include "platform/base/Logging.h"
#include "ublox/UbloxConfig.h"
#include "ublox/UbxCommands.h"

namespace ecu::koru::check {

namespace {

namespace ubx = gpspub::ubx;

constexpr unsigned MOST_PERCENT = 80;
constexpr size_t RATE_UART_1 = 3;  // in a CFG-MSG of 8 bytes
constexpr size_t RATE_ALONE = 2;   // in a CFG-MSG of 3 bytes, for the port that it comes on

using Message = std::pair<uint8_t, uint8_t>;  // class, id

/// The longest form of a message in the formats that the service sets (NMEA 4.0, 12 satellites in view of
/// each system), with CR LF or the UBX frame around it.
struct Length {
  Message message;
  unsigned bytes;
  unsigned per_system;  // sentences for each system; 0: one for all
};
constexpr std::array<Length, 11> LENGTHS{{{{ubx::NMEA_STANDARD, 0x00}, 80, 0},  // GGA
                                          {{ubx::NMEA_STANDARD, 0x01}, 52, 0},  // GLL
                                          {{ubx::NMEA_STANDARD, 0x02}, 69, 1},  // GSA
                                          {{ubx::NMEA_STANDARD, 0x03}, 70, 3},  // GSV, four satellites each
                                          {{ubx::NMEA_STANDARD, 0x04}, 76, 0},  // RMC
                                          {{ubx::NMEA_STANDARD, 0x05}, 48, 0},  // VTG
                                          {{ubx::NMEA_STANDARD, 0x06}, 82, 1},  // GRS
                                          {{ubx::NMEA_STANDARD, 0x07}, 66, 0},  // GST
                                          {{ubx::NMEA_STANDARD, 0x08}, 38, 0},  // ZDA
                                          {{ubx::NAV, ubx::NAV_TIMEUTC}, 28, 0},
                                          {{ubx::MON, ubx::MON_HW}, 68, 0}}};

using Rates = std::map<Message, unsigned>;  // every how many solutions; 0: off

void apply(Rates& rates, uint8_t cls, uint8_t id, std::span<const uint8_t> payload) {
  if (cls != ubx::CFG || id != ubx::CFG_MSG || payload.size() < RATE_ALONE + 1) return;
  const bool alone = payload.size() == RATE_ALONE + 1;
  rates[{payload[0], payload[1]}] = ubx::u8(payload, alone ? RATE_ALONE : RATE_UART_1);
}

Rates configured_rates(const gpspub::Settings& settings) {
  Rates rates;
  for (const auto& command : ubx::INIT_COMMANDS)
    apply(rates, command.cls, command.id, std::span(command.payload).first(command.length));
  for (const auto& command : settings.raw_cmd_post) {
    const gpspub::UbxFrame frame({reinterpret_cast<const uint8_t*>(command.data()), command.size()});
    apply(rates, frame.cls(), frame.id(), frame.payload());
  }
  return rates;
}

}  // namespace

LinkBudget link_budget(const gpspub::Settings& settings, unsigned period_ms, uint32_t systems) {
  LinkBudget budget;
  const unsigned count = std::max(1, std::popcount(systems));
  double bytes = 0;
  for (const auto& [message, rate] : configured_rates(settings)) {
    if (rate == 0) continue;
    const auto* const length = std::ranges::find(LENGTHS, message, &Length::message);
    if (length == LENGTHS.end()) {
      ++budget.uncounted;
    } else {
      bytes += 1.0 * length->bytes * (length->per_system == 0 ? 1 : length->per_system * count) / rate;
    }
  }
  gpspub::BaudRate rate;
  rate.set(settings.baud_rate);
  budget.baud_rate = gpspub::UbloxConfig::effectiveBaudrate(rate.bitsPerSecond());
  budget.bytes_per_epoch = static_cast<unsigned>(std::lround(bytes));
  budget.bytes_per_second = static_cast<unsigned>(std::lround(bytes * 1000 / std::max(1U, period_ms)));
  return budget;
}

void check_link(const gpspub::Settings& settings, unsigned period_ms, uint32_t systems, Report& report) {
  const LinkBudget budget = link_budget(settings, period_ms, systems);
  std::string text = logging::text("up to ", budget.bytes_per_epoch, " bytes an epoch, every ", period_ms,
                                   " ms: ", budget.percent(), " % of the line");
  if (budget.percent() > MOST_PERCENT)
    text += "; above 80 % sentences may come late or be lost: take a higher baud_rate or fewer messages";
  if (budget.uncounted > 0)
    text += logging::text("; ", budget.uncounted, " messages of raw commands not counted");
  report.unit.push_back({"link",
                         std::to_string(budget.baud_rate) + " bit/s",
                         std::move(text),
                         budget.percent() > MOST_PERCENT,
                         {{"baud_rate", budget.baud_rate},
                          {"bytes_per_epoch", budget.bytes_per_epoch},
                          {"bytes_per_second", budget.bytes_per_second},
                          {"percent", budget.percent()}}});
}

}  // namespace ecu::koru::check
