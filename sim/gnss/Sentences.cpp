#include "sim/gnss/Sentences.h"

#include <algorithm>
#include <cmath>

#include "sim/gnss/Text.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

constexpr double KMH_PER_KNOT = 1.852;
constexpr double GEOID_SEPARATION_M = 47.6;
constexpr double NO_DOP = 99.99;     // means "unknown"
constexpr int SATELLITE_SLOTS = 12;  // in GSA and GRS; no more satellites of a system are ever in view

class Builder {
 public:
  Builder(std::string_view talker, std::string_view type) : m_text(talker) { m_text += type; }

  Builder& field(std::string_view text) {
    m_text += ',';
    m_text += text;
    return *this;
  }
  Builder& empty(int count) {
    m_text.append(static_cast<size_t>(count), ',');
    return *this;
  }
  Builder& number(double value, int decimals) { return field(decimal(value, decimals)); }
  Builder& number(int value, int width) { return field(zero_padded(value, width)); }

  /// hhmmss.ss
  Builder& time(int64_t utc_us) {
    const CivilTime t = civil_time(utc_us + 5'000);  // rounds to the nearest hundredth
    return field(zero_padded(t.hour * 10'000 + t.minute * 100 + t.second, 6) + "." +
                 zero_padded(t.microsecond / 10'000, 2));
  }
  /// ddmmyy
  Builder& date(int64_t utc_us) {
    const CivilTime t = civil_time(utc_us + 5'000);
    return field(zero_padded(t.day * 10'000 + t.month * 100 + static_cast<unsigned>(t.year % 100), 6));
  }
  /// Degrees and minutes, then the letter of the hemisphere.
  Builder& angle(double degrees, int degree_width, std::string_view positive, std::string_view negative) {
    constexpr int64_t MINUTE = 100'000;
    const int64_t total = std::llround(std::abs(degrees) * 60.0 * MINUTE);
    field(zero_padded(total / (60 * MINUTE), degree_width) + zero_padded(total / MINUTE % 60, 2) + "." +
          zero_padded(total % MINUTE, 5));
    return field(degrees < 0 ? negative : positive);
  }
  Builder& position(const Fix& fix) {
    if (!fix.valid) return empty(4);
    return angle(fix.latitude_deg, 2, "N", "S").angle(fix.longitude_deg, 3, "E", "W");
  }
  [[nodiscard]] std::string finish() const {
    uint8_t checksum = 0;
    for (const char c : m_text) checksum ^= static_cast<uint8_t>(c);
    return "$" + m_text + "*" + hex(checksum, 2) + "\r\n";
  }

 private:
  std::string m_text;
};

/// Writes 359.996 as 0.00.
std::string course(const Fix& fix) {
  return fix.course_deg ? decimal(std::fmod(std::round(*fix.course_deg * 100) / 100, 360.0), 2) : "";
}

std::string rmc(std::string_view talker, const Fix& fix, NmeaVersion version) {
  Builder out(talker, "RMC");
  out.time(fix.utc_us).field(fix.valid ? "A" : "V").position(fix);
  if (fix.valid) {
    out.number(fix.speed_kmh / KMH_PER_KNOT, 3).field(course(fix));
  } else {
    out.empty(2);
  }
  out.date(fix.utc_us).empty(2).field(fix.valid ? "A" : "N");
  if (version == NmeaVersion::v4_10) out.field("V");  // no navigational status
  return out.finish();
}

std::string vtg(std::string_view talker, const Fix& fix) {
  Builder out(talker, "VTG");
  if (!fix.valid) return out.empty(8).field("N").finish();
  out.field(course(fix)).field("T").empty(1).field("M");
  out.number(fix.speed_kmh / KMH_PER_KNOT, 3).field("N").number(fix.speed_kmh, 3).field("K");
  return out.field("A").finish();
}

std::string gll(std::string_view talker, const Fix& fix) {
  Builder out(talker, "GLL");
  out.position(fix).time(fix.utc_us).field(fix.valid ? "A" : "V");
  return out.field(fix.valid ? "A" : "N").finish();
}

std::string zda(std::string_view talker, const Fix& fix) {
  const CivilTime t = civil_time(fix.utc_us + 5'000);
  Builder out(talker, "ZDA");
  out.time(fix.utc_us).number(static_cast<int>(t.day), 2).number(static_cast<int>(t.month), 2);
  return out.number(t.year, 4).field("00").field("00").finish();
}

std::string gga(std::string_view talker, const Fix& fix) {
  Builder out(talker, "GGA");
  out.time(fix.utc_us).position(fix);
  if (!fix.valid) return out.field("0").field("00").number(NO_DOP, 2).empty(6).finish();
  out.field("1").number(fix.satellites, 2).number(fix.hdop, 2);
  out.number(fix.altitude_m, 1).field("M").number(GEOID_SEPARATION_M, 1).field("M");
  return out.empty(2).finish();
}

/// Returns the satellite's number in that version. 4.10 counts Galileo and BeiDou from 1.
int written_number(const Satellite& satellite, NmeaVersion version) {
  return version == NmeaVersion::v4_10 && satellite.number > 300 ? satellite.number % 100 : satellite.number;
}

/// Returns the satellites of GSA and GRS, in the same order.
std::vector<Satellite> used_satellites(const Fix& fix, Constellation constellation) {
  if (!fix.valid) return {};
  auto satellites = satellites_in_view(constellation, fix.utc_us);
  std::erase_if(satellites, [](const Satellite& satellite) { return !satellite.used; });
  return satellites;
}

std::string gsa(std::string_view talker, const Fix& fix, Constellation constellation, NmeaVersion version) {
  Builder out(talker, "GSA");
  out.field("A").field(fix.valid ? "3" : "1");
  const auto used = used_satellites(fix, constellation);
  for (const Satellite& satellite : used) out.number(written_number(satellite, version), 2);
  out.empty(SATELLITE_SLOTS - static_cast<int>(used.size()));
  for (const double dop : {fix.pdop, fix.hdop, fix.vdop}) out.number(fix.valid ? dop : NO_DOP, 2);
  if (version == NmeaVersion::v4_10) out.number(names_of(constellation).system_id, 1);
  return out.finish();
}

std::string grs(std::string_view talker, const Fix& fix, Constellation constellation, NmeaVersion version) {
  Builder out(talker, "GRS");
  out.time(fix.utc_us).field("1");
  const auto used = used_satellites(fix, constellation);
  for (const Satellite& satellite : used) out.number((satellite.azimuth_deg % 31 - 15) / 10.0, 1);
  out.empty(SATELLITE_SLOTS - static_cast<int>(used.size()));
  if (version == NmeaVersion::v4_10) out.number(names_of(constellation).system_id, 1).field("0");
  return out.finish();
}

void add_gsv(std::vector<std::string>& out, const Fix& fix, Constellation constellation,
             NmeaVersion version) {
  constexpr size_t PER_SENTENCE = 4;
  const auto seen = fix.valid ? satellites_in_view(constellation, fix.utc_us) : std::vector<Satellite>{};
  const size_t count = std::max<size_t>(1, (seen.size() + PER_SENTENCE - 1) / PER_SENTENCE);
  for (size_t i = 0; i < count; ++i) {
    Builder sentence(names_of(constellation).talker, "GSV");
    sentence.number(static_cast<int>(count), 1).number(static_cast<int>(i + 1), 1);
    sentence.number(static_cast<int>(seen.size()), 2);
    for (size_t k = i * PER_SENTENCE; k < std::min(seen.size(), (i + 1) * PER_SENTENCE); ++k) {
      sentence.number(written_number(seen[k], version), 2).number(seen[k].elevation_deg, 2);
      sentence.number(seen[k].azimuth_deg, 3).number(seen[k].cn0_dbhz, 2);
    }
    if (version == NmeaVersion::v4_10) sentence.field("0");  // all signals
    out.push_back(sentence.finish());
  }
}

std::string gst(std::string_view talker, const Fix& fix) {
  Builder out(talker, "GST");
  out.time(fix.utc_us);
  if (!fix.valid) return out.empty(7).finish();
  out.number(std::hypot(fix.latitude_error_m, fix.longitude_error_m), 1).empty(3);
  out.number(fix.latitude_error_m, 1).number(fix.longitude_error_m, 1).number(fix.altitude_error_m, 1);
  return out.finish();
}

}  // namespace

std::vector<std::string> epoch_sentences(const Fix& fix, const SentenceOptions& options,
                                         const SentenceSet& kinds) {
  const bool single = options.constellations.size() == 1;
  const std::string_view talker = single ? names_of(options.constellations.front()).talker : "GN";
  const auto wanted = [&](Sentence kind) { return kinds[static_cast<size_t>(kind)]; };
  std::vector<std::string> out;
  if (wanted(Sentence::rmc)) out.push_back(rmc(talker, fix, options.version));
  if (wanted(Sentence::vtg)) out.push_back(vtg(talker, fix));
  if (wanted(Sentence::gga)) out.push_back(gga(talker, fix));
  for (const Constellation constellation : options.constellations)
    if (wanted(Sentence::gsa)) out.push_back(gsa(talker, fix, constellation, options.version));
  for (const Constellation constellation : options.constellations)
    if (wanted(Sentence::gsv)) add_gsv(out, fix, constellation, options.version);
  if (wanted(Sentence::gll)) out.push_back(gll(talker, fix));
  for (const Constellation constellation : options.constellations)
    if (wanted(Sentence::grs)) out.push_back(grs(talker, fix, constellation, options.version));
  if (wanted(Sentence::gst)) out.push_back(gst(talker, fix));
  if (wanted(Sentence::zda)) out.push_back(zda(talker, fix));
  return out;
}

}  // namespace ecu::koru::sim
