#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "bench/Feed.h"
#include "bench/Gpsd.h"
#include "bench/ServiceRun.h"

namespace bench {

/// What one program used and published in the same seconds as the others. The load is per epoch or, which is
/// the same at 1 Hz and holds without epochs too, per second.
struct FeedResult {
  size_t fixes = 0;
  Load load;
};

struct FeedResults {
  FeedResult service;
  std::optional<FeedResult> peer;
};

/// The service as on the unit "zpt", which sends its signal groups too, and beside it the peer on the same
/// feed. Throws like ServiceRun.
class FeedRun {
 public:
  explicit FeedRun(bool with_peer);

  /// Measures for `seconds` once both have got used to the feeding.
  [[nodiscard]] FeedResults measure(Feeding feeding, int seconds);
  /// Returns the peer's name and version; empty if there is none.
  [[nodiscard]] std::string peerName() const;

 private:
  /// Everything that is read before and after a measurement.
  struct Point {
    size_t service_fixes = 0;
    ProcessFigures service;
    size_t peer_fixes = 0;
    ProcessFigures peer;
  };
  void warmUp(Feeding feeding);
  [[nodiscard]] bool allFix(const Point& since) const;
  [[nodiscard]] Point readPoint();

  Feed m_feed;
  ServiceRun m_service;
  std::unique_ptr<Gpsd> m_peer;
};

}  // namespace bench
