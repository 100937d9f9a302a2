#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "proto/nvxproto.pb.h"
#include "tools/tap/Arrival.h"

/// The NMEA sentences that come with each fix. For any thread.
namespace ecu::koru::tap {

/// Returns true for "$" or "!" and printable text up to the only CR LF. The checksum is left to the reader.
[[nodiscard]] bool is_sentence(std::string_view text);

/// Returns the sentences of a fix, one after the other. Empty for a retained message, whose fix is old, and
/// for one that is not a fix. Everything that is not a sentence is left out: it could control a terminal.
[[nodiscard]] std::string sentences_of(const Arrival& arrival);

/// Returns the fields between the commas, the first of them being the address, such as "GNGGA". The checksum
/// is not part of the last one. Borrows `sentence`.
[[nodiscard]] std::vector<std::string_view> sentence_fields(std::string_view sentence);

/// Returns the fields of the fix's first sentence with this formatter, such as "GGA", from any talker; empty
/// if there is none. Borrows `fix`.
[[nodiscard]] std::vector<std::string_view> find_sentence(const pb::GnssData& fix,
                                                          std::string_view formatter);

}  // namespace ecu::koru::tap
