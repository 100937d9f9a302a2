#include "bench/FeedRun.h"

#include <stdexcept>

namespace bench {

namespace {

// The peer tries other speeds and protocols at first.
constexpr int WARM_UP_S = 6;
constexpr int PATIENCE_S = 20;

FeedResult difference(size_t fixes, const ProcessFigures& first, const ProcessFigures& last, int seconds) {
  return {fixes, loadBetween(first, last, seconds)};
}

}  // namespace

FeedRun::FeedRun(bool with_peer)
    : m_feed(with_peer ? 2 : 1),
      m_service({.device = m_feed.device(0),
                 .baud = Feed::BAUD,
                 .unit = {"--var", "hwversion=zpt"},
                 .subscription = "#"}),
      m_peer(with_peer ? std::make_unique<Gpsd>(m_feed.device(1)) : nullptr) {
  for (int waited_s = 0; !m_feed.isHeld(); ++waited_s) {
    if (waited_s == PATIENCE_S)
      throw std::runtime_error("a program does not open its device:\n" + m_service.said() +
                               (m_peer ? m_peer->said() : ""));
    rest(std::chrono::seconds(1));
  }
}

FeedResults FeedRun::measure(Feeding feeding, int seconds) {
  warmUp(feeding);
  const Point first = readPoint();
  m_feed.play(feeding, seconds);
  const Point last = readPoint();
  FeedResults results;
  results.service =
      difference(last.service_fixes - first.service_fixes, first.service, last.service, seconds);
  if (m_peer) results.peer = difference(last.peer_fixes - first.peer_fixes, first.peer, last.peer, seconds);
  return results;
}

void FeedRun::warmUp(Feeding feeding) {
  m_feed.play(feeding, WARM_UP_S);
  if (feeding == Feeding::SILENT) return;
  const Point start = readPoint();
  for (int waited_s = 0; !allFix(start); ++waited_s) {
    if (waited_s == PATIENCE_S)
      throw std::runtime_error("a program does not report fixes:\n" + m_service.said() +
                               (m_peer ? m_peer->said() : ""));
    m_feed.play(feeding, 1);
  }
}

bool FeedRun::allFix(const Point& since) const {
  return m_service.fixes().size() > since.service_fixes && (!m_peer || m_peer->fixes() > since.peer_fixes);
}

FeedRun::Point FeedRun::readPoint() {
  Point point;
  point.service_fixes = m_service.fixes().size();
  point.service = m_service.figures();
  if (!m_peer) return point;
  point.peer_fixes = m_peer->fixes();
  point.peer = m_peer->figures();
  return point;
}

std::string FeedRun::peerName() const {
  return m_peer ? "gpsd " + m_peer->version() : "";
}

}  // namespace bench
