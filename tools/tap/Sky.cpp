#include "tools/tap/Sky.h"

#include <algorithm>
#include <tuple>

#include "platform/base/Numbers.h"
#include "tools/tap/Sentences.h"

namespace ecu::koru::tap {

namespace {

constexpr size_t MAX_SATELLITES = 200;

struct SystemRow {
  System system;
  std::string_view name;
  std::string_view talkers;  // two letters each
  int id;                    // in NMEA 4.10
  int first, last;           // its numbers where no talker and no id says the system
  int offset;                // from these to the numbers of 4.10
};

constexpr SystemRow SYSTEMS[] = {
    {System::gps, "GPS", "GP", 1, 1, 32, 0},
    {System::sbas, "SBAS", "", -1, 33, 64, 0},
    {System::sbas, "SBAS", "", -1, 120, 151, 87},
    {System::glonass, "GLONASS", "GL", 2, 65, 99, 0},
    {System::galileo, "Galileo", "GA", 3, 301, 336, 300},
    {System::beidou, "BeiDou", "GBBD", 4, 401, 463, 400},
    {System::qzss, "QZSS", "GQ", 5, 193, 202, 0},
    {System::navic, "NavIC", "GI", 6, 0, -1, 0},
};

using Fields = std::vector<std::string_view>;

std::optional<int> whole(std::string_view text) {
  const auto value = to_number<int>(text);
  return value && *value >= 0 ? value : std::nullopt;
}

std::optional<double> dop(std::string_view text) {
  const auto value = to_number<double>(text);
  return value ? known_dop(*value) : std::nullopt;
}

/// Returns the fields between '$' and '*', the first of them "GPGSV"; empty if the checksum is wrong.
Fields fields_of(std::string_view sentence) {
  const size_t star = sentence.rfind('*');
  if (!sentence.starts_with('$') || star == std::string_view::npos || star + 3 > sentence.size()) return {};
  const auto expected = to_number<unsigned>(sentence.substr(star + 1, 2), 16);
  unsigned sum = 0;
  for (const char c : sentence.substr(1, star - 1)) sum ^= static_cast<unsigned char>(c);
  return sum == expected ? sentence_fields(sentence) : Fields();
}

const SystemRow* row_of_talker(std::string_view talker) {
  const auto* const row = std::ranges::find_if(SYSTEMS, [&](const auto& r) {
    const size_t at = r.talkers.find(talker);
    return at != std::string_view::npos && at % 2 == 0;
  });
  return row != std::end(SYSTEMS) ? row : nullptr;
}

const SystemRow* row_of_number(int number) {
  const auto* const row =
      std::ranges::find_if(SYSTEMS, [&](const auto& r) { return number >= r.first && number <= r.last; });
  return row != std::end(SYSTEMS) ? row : nullptr;
}

/// Returns system and number of 4.10. `said` is the system that talker or id name; null if none does.
Satellite identify(const SystemRow* said, int number) {
  const SystemRow* row = row_of_number(number);
  // A GPS talker also speaks for SBAS and QZSS; the numbers of other systems overlap with those of GPS.
  const bool as_said = said != nullptr && (said->system != System::gps || row == nullptr);
  const bool renumbered = row != nullptr && row == said && row->offset > 0;
  if (as_said && !renumbered) return {.system = said->system, .number = number};
  if (row == nullptr) return {.system = System::unknown, .number = number};
  return {.system = row->system, .number = number - row->offset};
}

class Reader {
 public:
  void read(std::string_view sentence) {
    const Fields fields = fields_of(sentence);
    if (fields.empty() || fields[0].size() != 5) return;
    if (fields[0].ends_with("GSV")) in_view(fields);
    if (fields[0].ends_with("GSA")) in_use(fields);
  }
  Sky finish() {
    std::ranges::sort(m_sky.satellites, {}, [](const auto& s) { return std::tuple(s.system, s.number); });
    return std::move(m_sky);
  }

 private:
  /// $GPGSV,3,1,10,02,37,123,44,...: four fields a satellite; a single one at the end is the signal.
  void in_view(const Fields& fields) {
    constexpr size_t FIRST = 4, PER_SATELLITE = 4;
    m_sky.has_view = true;
    const SystemRow* const said = row_of_talker(fields[0].substr(0, 2));
    for (size_t i = FIRST; i + PER_SATELLITE <= fields.size(); i += PER_SATELLITE) {
      const auto number = whole(fields[i]);
      Satellite* const satellite = number ? find(identify(said, *number)) : nullptr;
      if (satellite == nullptr) continue;
      satellite->elevation_deg = whole(fields[i + 1]);
      satellite->azimuth_deg = whole(fields[i + 2]);
      satellite->cn0_dbhz = std::max(satellite->cn0_dbhz, whole(fields[i + 3]));
    }
  }

  /// $GNGSA,A,3,02,05,...,1.5,0.9,1.2[,1]: 12 satellites, PDOP, HDOP, VDOP, system.
  void in_use(const Fields& fields) {
    constexpr size_t FIRST = 3, PDOP = 15, SYSTEM_ID = 18;
    if (fields.size() < SYSTEM_ID) return;
    const SystemRow* said = row_of_talker(fields[0].substr(0, 2));
    const auto id = fields.size() > SYSTEM_ID ? whole(fields[SYSTEM_ID]) : std::nullopt;
    for (const auto& row : SYSTEMS) {
      if (id == row.id) said = &row;
    }
    for (size_t i = FIRST; i < PDOP; ++i) {
      const auto number = whole(fields[i]);
      if (Satellite* const satellite = number ? find(identify(said, *number)) : nullptr)
        satellite->used = true;
    }
    m_sky.pdop = dop(fields[PDOP]);
  }

  /// Returns the satellite, new if need be; null if there are too many.
  Satellite* find(const Satellite& wanted) {
    auto& all = m_sky.satellites;
    const auto found = std::ranges::find_if(
        all, [&](const auto& s) { return s.system == wanted.system && s.number == wanted.number; });
    if (found != all.end()) return &*found;
    return all.size() < MAX_SATELLITES ? &all.emplace_back(wanted) : nullptr;
  }

  Sky m_sky;
};

}  // namespace

std::optional<double> known_dop(double value) {
  constexpr double UNKNOWN = 99.0;  // receivers send 99.99
  return value > 0 && value < UNKNOWN ? std::optional(value) : std::nullopt;
}

std::string_view name_of(System system) {
  const auto* const row = std::ranges::find(SYSTEMS, system, &SystemRow::system);
  return row != std::end(SYSTEMS) ? row->name : "?";
}

Sky read_sky(const pb::GnssData& fix) {
  Reader reader;
  for (const auto& sentence : fix.nmea()) reader.read(sentence);
  return reader.finish();
}

}  // namespace ecu::koru::tap
