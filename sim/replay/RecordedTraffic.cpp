#include "sim/replay/RecordedTraffic.h"

#include <optional>

#include "wire/LinkRecord.h"

namespace ecu::koru::sim {

namespace {

namespace linkrecord = gpspub::linkrecord;
using linkrecord::EventKind;
using linkrecord::Status;

LinkEvent::Kind kind_of(const Status& status) {
  switch (status.kind) {
    case Status::Kind::OPENED:
      return LinkEvent::Kind::OPENED;
    case Status::Kind::RATE:
      return LinkEvent::Kind::RATE;
    case Status::Kind::CLOSED:
      break;
  }
  return LinkEvent::Kind::CLOSED;
}

/// Returns nothing for an event of no meaning here.
std::optional<LinkEvent> link_event(const linkrecord::Event& event) {
  const std::string bytes(event.payload.begin(), event.payload.end());
  switch (event.kind) {
    case EventKind::DATA_TX_START:
      return LinkEvent{LinkEvent::Kind::SENT, event.since_begin_us, 0, bytes};
    case EventKind::DATA_RX_START:
      return LinkEvent{LinkEvent::Kind::RECEIVED, event.since_begin_us, 0, bytes};
    case EventKind::STATUS_CHANGE:
      break;
    default:
      return std::nullopt;
  }
  const auto status = linkrecord::statusOf(bytes);
  if (!status) return std::nullopt;
  return LinkEvent{kind_of(*status), event.since_begin_us, status->baud, {}};
}

class Reading {
 public:
  explicit Reading(const std::string& path) : m_path(path), m_file(path) {
    if (m_file.link_type() != linkrecord::LINK_TYPE)
      throw BadRecording(path + ": the link type is " + std::to_string(m_file.link_type()) + ", not " +
                         std::to_string(linkrecord::LINK_TYPE) + ": not a recording of the receiver's link");
  }

  RecordedTraffic read() {
    PcapReader::Packet packet;
    for (size_t number = 1; m_recording.problem.empty() && m_file.next(packet); ++number)
      m_recording.problem = add(packet, number);
    if (m_recording.problem.empty()) m_recording.problem = m_file.problem();
    if (m_recording.events.empty())
      throw BadRecording(m_path + ": it holds no event of the receiver's link" +
                         (m_recording.problem.empty() ? "" : ": " + m_recording.problem));
    return std::move(m_recording);
  }

 private:
  /// Returns why the packet cannot be used.
  std::string add(const PcapReader::Packet& packet, size_t number) {
    const auto recorded = linkrecord::eventOf(packet.bytes);
    if (!recorded) return "packet " + std::to_string(number) + " is shorter than its header";
    auto event = link_event(*recorded);
    if (!event) return {};
    auto& events = m_recording.events;
    if (events.empty()) {
      m_begin_us = event->at_us;
      m_recording.begin_wall_us = packet.wall_ns / 1000;
    }
    event->at_us -= m_begin_us;
    if (!events.empty() && event->at_us < events.back().at_us)
      return "packet " + std::to_string(number) + " is earlier than the one before: another recording begins";
    events.push_back(std::move(*event));
    return {};
  }

  const std::string& m_path;
  PcapReader m_file;
  RecordedTraffic m_recording;
  int64_t m_begin_us = 0;
};

}  // namespace

RecordedTraffic read_recorded_traffic(const std::string& path) {
  return Reading(path).read();
}

}  // namespace ecu::koru::sim
