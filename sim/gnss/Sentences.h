#pragma once

#include <bitset>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/gnss/Fix.h"
#include "sim/gnss/Sky.h"

namespace ecu::koru::sim {

enum class NmeaVersion : uint8_t { v4_0, v4_10 };

struct SentenceOptions {
  std::vector<Constellation> constellations{Constellation::gps, Constellation::glonass};
  NmeaVersion version = NmeaVersion::v4_0;
  bool gsv = false;
};

/// The kinds of sentences, in the order of a burst.
enum class Sentence : uint8_t { rmc, vtg, gga, gsa, gsv, gll, grs, gst, zda };
using SentenceSet = std::bitset<9>;

/// Returns these kinds of sentences of one epoch, in their order. GSA, GSV and GRS are repeated for each
/// constellation. Each ends with CR LF. The talker is GN, or that of the only constellation. Without a fix,
/// the sentences hold only the time. SentenceOptions::gsv is ignored.
[[nodiscard]] std::vector<std::string> epoch_sentences(const Fix& fix, const SentenceOptions& options,
                                                       const SentenceSet& kinds);

}  // namespace ecu::koru::sim
