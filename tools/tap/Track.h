#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tap/Fix.h"

namespace ecu::koru::tap {

/// Text to add to a file. With both parts the file is complete: `tail` closes what is open, and the next
/// piece overwrites it. A piece is never shorter than the tail before it.
struct Piece {
  std::string lasting;
  std::string tail;
};

/// A file format for tracks, without the file. For one thread.
class TrackFormat {
 public:
  TrackFormat() = default;
  virtual ~TrackFormat() = default;
  TrackFormat(const TrackFormat&) = delete;
  TrackFormat& operator=(const TrackFormat&) = delete;

  /// Returns the start of a file, which has no fix yet.
  [[nodiscard]] virtual Piece begin() = 0;
  /// Returns a fix. `segment` is its Segments::number() and never becomes less.
  [[nodiscard]] virtual Piece add(const Fix& fix, unsigned segment) = 0;
};

/// Returns the names of the formats: csv, gpx and kml.
[[nodiscard]] std::vector<std::string> track_formats();
/// Returns a format by its name; null if there is no such format.
[[nodiscard]] std::unique_ptr<TrackFormat> track_format(std::string_view name);

}  // namespace ecu::koru::tap
