#pragma once

#include <bitset>
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

/// The kinds of sentences, in the order in which a burst brings them.
enum class Sentence : uint8_t { rmc, vtg, gga, gsa, gsv, gll, grs, gst, zda };
using SentenceSet = std::bitset<9>;

/// NMEA 0183: the exclusive or of the characters between '$' and '*', neither included.
[[nodiscard]] uint8_t nmea_checksum(std::string_view between);

/// The burst of one epoch in the order in which it is sent: RMC, GGA, one GSA per constellation, GSV when
/// wanted, GST. Each with its CR LF. Talker GN, with one constellation that one's own. Without a fix only the
/// time is there.
[[nodiscard]] std::vector<std::string> epoch_sentences(const Fix& fix, const SentenceOptions& options);
/// The same with just these kinds, in their order; GSA, GSV and GRS come once for each constellation, and
/// SentenceOptions::gsv does not count.
[[nodiscard]] std::vector<std::string> epoch_sentences(const Fix& fix, const SentenceOptions& options,
                                                       const SentenceSet& kinds);

}  // namespace ecu::koru::sim
