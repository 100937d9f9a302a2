#include "core/FixState.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "publish/GnssPublishMqtt.h"
#include "publish/StatusSignals.h"

namespace ecu::koru::gpspub {

namespace {

using Health = pb::GnssHealth;

constexpr int64_t US_PER_S = 1'000'000;
constexpr int ENOUGH_SATELLITES = 4;  // for a position and the time
constexpr int64_t SILENT_US = US_PER_S;
// A receiver that gets its antenna's supply back finds its first fix in half of this.
constexpr int64_t COLD_START_US = 60 * US_PER_S;

constexpr std::array<std::string_view, 5> ORDINALS{"1st", "2nd", "3rd", "4th", "5th"};

FixState judgeReception(const FixFacts& facts) {
  const Reception& reception = facts.reception;
  if (reception.bytes == 0) return Health::STARTING;  // the first ones have just come
  if (reception.sentences == 0 && reception.rejected == 0 && reception.frames == 0) return Health::UNFRAMED;
  if (reception.rejected > 0 && reception.rejected >= reception.sentences) return Health::BAD_CHECKSUMS;
  if (reception.sentences == 0) return Health::NO_SENTENCES;
  return reception.rmc == 0 ? Health::NO_RMC : Health::VALID;
}

FixState judgeSky(const FixFacts& facts) {
  if (facts.supply_off_us < COLD_START_US) return Health::SUPPLY_SWITCHED_OFF;
  if (!facts.antenna_on) return Health::ANTENNA_OFF;
  if (facts.antenna_status == ANTENNA_SHORT) return Health::ANTENNA_SHORT;
  if (facts.antenna_status == ANTENNA_OPEN) return Health::ANTENNA_OPEN;
  return facts.is_undated ? Health::NO_DATE : Health::NO_FIX;
}

FixState judgeReceiver(const FixFacts& facts) {
  if (facts.status == FixFacts::VALID_STATUS) return facts.is_mute ? Health::UNCONFIRMED : Health::VALID;
  if (facts.radio_silent) return Health::RADIO_SILENCE;
  if (facts.open_error != 0 || facts.went_away) return Health::NO_DEVICE;
  if (facts.silent_us >= SILENT_US) {
    const bool is_lost = facts.is_sought && (facts.rates_tried > 0 || !facts.ever_heard);
    return is_lost ? Health::SEARCHING : Health::SILENT;
  }
  const FixState reception = judgeReception(facts);
  if (reception == Health::UNFRAMED && facts.is_sought && facts.rates_tried > 0) return Health::SEARCHING;
  return reception == Health::VALID ? judgeSky(facts) : reception;
}

std::string seconds(int64_t us) {
  return std::to_string((us + US_PER_S / 2) / US_PER_S) + " s";
}

std::string quality(const FixFacts& facts) {
  std::string text;
  if (facts.satellites >= 0) text = std::to_string(facts.satellites) + " satellites";
  if (std::isfinite(facts.accuracy_m)) {
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), facts.accuracy_m,
                                   std::chars_format::fixed, 1);
    text.append(text.empty() ? "" : ", ").append(digits.data(), end.ptr).append(" m");
  }
  return text.empty() ? text : " (" + text + ")";
}

std::string where(const FixFacts& facts) {
  return facts.is_on_spi ? "over SPI" : logging::text("at ", facts.baud, " baud");
}

std::string search(const FixFacts& facts) {
  const auto rates = static_cast<unsigned>(ORDINALS.size());
  const auto round = facts.rates_tried / rates;
  std::string text = logging::text("searching the receiver: ", facts.baud, " baud, ",
                                   ORDINALS[facts.rates_tried % rates], " of ", rates);
  if (round > 0) text += logging::text(", round ", round + 1);
  return text;
}

std::string fixless(FixState state, const FixFacts& facts) {
  const Reception& reception = facts.reception;
  switch (state) {
    case Health::NO_DEVICE:
      return logging::text(logging::escaped(facts.device),
                           facts.open_error != 0
                               ? std::string(" cannot be opened: ") + std::strerror(facts.open_error)
                               : std::string(" went away"),
                           "; trying again every second");
    case Health::RADIO_SILENCE:
      return "radio silence";
    case Health::SILENT:
      return logging::text("the receiver has been silent for ", seconds(facts.silent_us),
                           facts.reopens ? "; opening the port again" : "");
    case Health::UNFRAMED:
      return logging::text(reception.bytes, " bytes/s arrive ", where(facts), ", none forms a sentence: ",
                           facts.is_on_spi ? "no receiver on the bus?" : "wrong rate or line ends?");
    case Health::BAD_CHECKSUMS:
      return logging::text(reception.rejected, " of ", reception.rejected + reception.sentences,
                           " sentences have a wrong checksum");
    case Health::NO_SENTENCES:
      return logging::text("UBX frames arrive ", where(facts), ", but no sentence");
    case Health::NO_RMC:
      return logging::text("sentences arrive ", where(facts), ", but no RMC");
    case Health::ANTENNA_OFF:
      return "the antenna's supply is switched off by a system parameter";
    case Health::ANTENNA_SHORT:
      return "antenna short circuit";
    case Health::ANTENNA_OPEN:
      return "antenna open";
    case Health::NO_DATE:
      return "the date is not known yet";
    case Health::CAN_SILENT:
      return "no time and date arrive over CAN";
    case Health::CAN_NO_FIX:
      return "the unit that sends over CAN has none";
    default:
      break;
  }
  if (facts.satellites < 0) return "the receiver has none";
  if (facts.satellites >= ENOUGH_SATELLITES)
    return logging::text("the receiver calls its position invalid (", facts.satellites, " satellites)");
  return logging::text(facts.satellites, " satellite", facts.satellites == 1 ? "" : "s");
}

}  // namespace

void FixFacts::takePosition(const GnssInfo& info) {
  status = publishedStatus(info);
  is_undated = info.m_status == STATUS_VALID && info.m_utc_tm.tm_mday == 0;
  satellites = info.m_num_satellites;
  accuracy_m = info.m_position_error;
}

FixState judge(const FixFacts& facts) {
  switch (facts.source) {
    case FixFacts::Source::SWITCHED_OFF:
      return Health::GNSS_OFF;
    case FixFacts::Source::RECEIVER:
      return judgeReceiver(facts);
    case FixFacts::Source::CAN:
      break;
  }
  if (facts.status == FixFacts::VALID_STATUS) return Health::VALID;
  if (!facts.frames_come) return Health::CAN_SILENT;
  return facts.is_undated ? Health::NO_DATE : Health::CAN_NO_FIX;
}

bool isValid(FixState state) {
  return state == Health::VALID || state == Health::UNCONFIRMED;
}

logging::Level levelOf(FixState state) {
  switch (state) {
    case Health::STARTING:
    case Health::VALID:
    case Health::GNSS_OFF:
    case Health::RADIO_SILENCE:
    case Health::SUPPLY_SWITCHED_OFF:
    case Health::ANTENNA_OFF:
    case Health::NO_DATE:
    case Health::NO_FIX:
      return logging::Level::INFO;
    default:
      return logging::Level::WARNING;
  }
}

std::string reasonOf(FixState state, const FixFacts& facts, ValidChange change, int64_t without_us) {
  switch (state) {
    case Health::STARTING:
      return "starting";
    case Health::GNSS_OFF:
      return "GNSS is switched off";
    case Health::SEARCHING:
      return search(facts);
    case Health::SUPPLY_SWITCHED_OFF:
      return "antenna supply switched off at cold start; expect about 25 s without a fix";
    case Health::VALID:
      if (change == ValidChange::TRUSTED) return "valid fix, trusted now" + quality(facts);
      return logging::text("valid fix ", change == ValidChange::AGAIN ? "again " : "", "after ",
                           seconds(without_us), quality(facts));
    case Health::UNCONFIRMED:
      return facts.is_refusing ? "valid fix, but not trusted: the receiver refuses commands"
                               : "valid fix, but not trusted: the receiver does not answer commands";
    default:
      return "no valid fix: " + fixless(state, facts);
  }
}

}  // namespace ecu::koru::gpspub
