#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/gnss/Fix.h"
#include "sim/gnss/Sky.h"

namespace ecu::koru::sim {

enum class NmeaVersion : uint8_t { v4_0, v4_10 };

/// Which sentences are sent and how.
struct SentenceOptions {
  std::vector<Constellation> constellations{Constellation::gps, Constellation::glonass};
  NmeaVersion version = NmeaVersion::v4_0;
  bool gsv = false;
};

/// NMEA 0183: the exclusive or of the characters between '$' and '*', neither included.
[[nodiscard]] uint8_t nmea_checksum(std::string_view between);

/// The burst of one epoch in the order in which it is sent: RMC, GGA, one GSA per constellation, GSV when
/// wanted, GST. Each with its CR LF. Talker GN, with one constellation that one's own. Without a fix only the
/// time is there.
[[nodiscard]] std::vector<std::string> epoch_sentences(const Fix& fix, const SentenceOptions& options);

}  // namespace ecu::koru::sim
