#include "tools/tap/Export.h"

#include "platform/com/Topics.h"
#include "tools/common/Options.h"
#include "tools/tap/Decode.h"
#include "tools/tap/Sentences.h"

namespace ecu::koru::tap {

void add_export_options(CLI::App& app, ExportOptions& options) {
  app.add_option(
         "--export", options,
         "Write the valid fixes to a file as a track, repeatable: csv, gpx or kml, and the file's name")
      ->type_name("FORMAT FILE")
      ->check(CLI::IsMember(track_formats()).application_index(0))
      ->check(tool::file_name().application_index(1))
      ->allow_extra_args(false);
}

std::vector<std::string> Export::topics() const {
  return {topic::GNSS_DATA};
}

void Export::begin(const Moment& /*beginning*/, bool /*live*/) {
  const Piece start = m_format->begin();
  if (!m_file.create() || !m_file.append(start.lasting, start.tail)) finish();
}

void Export::take(const Arrival& arrival) {
  if (arrival.retained) return;
  const Decoded decoded = decode(arrival.topic, arrival.payload);
  const auto* const data = std::get_if<pb::GnssData>(&decoded.body);
  const auto fix = data != nullptr ? valid_fix(*data) : std::nullopt;
  if (!fix) return;
  const Piece piece = m_format->add(*fix, m_segments.number(*fix, arrival.boot_ns));
  if (!m_file.append(piece.lasting, piece.tail)) finish();
}

}  // namespace ecu::koru::tap
