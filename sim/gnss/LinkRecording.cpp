// Built with the time_t of the distribution's libraries, see CMakeLists.txt: pcap_pkthdr holds one.
#include "sim/gnss/LinkRecording.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <memory>
#include <optional>
#include <span>

#include "sim/gnss/Files.h"

namespace ecu::koru::sim {
namespace {

using Kind = LinkRecording::Kind;

constexpr int RTAC_SERIAL = 250;
// A packet is, in big-endian order: seconds (4), microseconds (4), event (1), control lines (1), 0 (2), data.
constexpr size_t EVENT_OFFSET = 8;
constexpr size_t DATA_OFFSET = 12;
constexpr int64_t LONGEST_GAP_US = 86'400'000'000;
constexpr char STATUS_CHANGE = 0;
constexpr char DATA_TX_START = 1;
constexpr char DATA_RX_START = 2;
static_assert(sizeof(pcap_pkthdr) == 2 * sizeof(long) + 8, "the header as the distribution's libpcap has it");

int64_t number_in(std::string_view bytes) {
  int64_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<uint8_t>(byte);
  return value;
}

struct Status {
  Kind kind;
  unsigned baud;
};

std::optional<Status> status_of(std::string_view text) {
  const auto blank = std::min(text.find(' '), text.size());
  const std::string_view word = text.substr(0, blank), rate = text.substr(std::min(blank + 1, text.size()));
  unsigned baud = 0;
  const auto parsed = std::from_chars(rate.data(), rate.data() + rate.size(), baud);
  if (!rate.empty() && (parsed.ec != std::errc() || parsed.ptr != rate.data() + rate.size())) return {};
  if (word == "open") return Status{Kind::opened, baud};
  if (word == "baud") return Status{Kind::rate, baud};
  if (word == "close") return Status{Kind::closed, 0};
  return {};
}

struct ClosePcap {
  void operator()(pcap_t* file) const { pcap_close(file); }
};
using Pcap = std::unique_ptr<pcap_t, ClosePcap>;

/// Adds the events of packets to a recording.
class Reader {
 public:
  explicit Reader(LinkRecording& recording) : m_recording(recording) {}

  /// Returns why the packet cannot be used, nor what follows it; empty if it can.
  std::string add(const pcap_pkthdr& header, std::string_view packet) {
    if (header.caplen < header.len || packet.size() < DATA_OFFSET) return "is cut short";
    const int64_t time_us = number_in(packet.substr(0, 4)) * 1'000'000 + number_in(packet.substr(4, 4));
    const auto status =
        packet[EVENT_OFFSET] == STATUS_CHANGE ? status_of(packet.substr(DATA_OFFSET)) : std::nullopt;
    const auto kind = status ? std::optional(status->kind) : data_kind(packet[EVENT_OFFSET]);
    if (!kind || (!status && packet.size() == DATA_OFFSET)) return {};
    auto& events = m_recording.events;
    if (events.empty()) {
      m_recording.begin_us = time_us;
      m_recording.begin_wall_us = int64_t{header.ts.tv_sec} * 1'000'000 + header.ts.tv_usec / 1000;  // ns
    }
    const int64_t at_us = time_us - m_recording.begin_us;
    const int64_t since_last_us = events.empty() ? 0 : at_us - events.back().at_us;
    if (since_last_us < 0) return "is earlier than the one before, so another recording begins there";
    if (since_last_us > LONGEST_GAP_US) return "is more than a day later than the one before";
    const size_t begin = m_recording.bytes.size();
    if (!status) m_recording.bytes += packet.substr(DATA_OFFSET);
    events.push_back({*kind, status ? status->baud : 0, at_us, begin, m_recording.bytes.size()});
    return {};
  }

 private:
  static std::optional<Kind> data_kind(char event) {
    if (event == DATA_TX_START) return Kind::from_host;
    if (event == DATA_RX_START) return Kind::from_receiver;
    return {};
  }

  LinkRecording& m_recording;
};

Pcap open_capture(const std::string& path) {
  char error[PCAP_ERRBUF_SIZE] = "";
  Pcap file(pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error));
  if (!file) {
    const std::string reason = error;  // it holds the name if the file cannot be opened
    throw FileError(reason.starts_with(path + ": ") ? reason : path + ": " + reason);
  }
  const int type = pcap_datalink(file.get());
  if (type == RTAC_SERIAL) return file;
  const char* const name = pcap_datalink_val_to_name(type);
  throw FileError(path + ": is a capture of link type " + (name != nullptr ? name : std::to_string(type)) +
                  ", not a recording of a receiver's link (RTAC_SERIAL)");
}

}  // namespace

bool is_capture_file(const std::string& path) {
  constexpr std::array<std::string_view, 5> BEGINNINGS{
      "\xA1\xB2\xC3\xD4", "\xD4\xC3\xB2\xA1", "\xA1\xB2\x3C\x4D", "\x4D\x3C\xB2\xA1", "\x0A\x0D\x0D\x0A"};
  std::array<char, 4> begin{};
  std::ifstream file(path, std::ios::binary);
  file.read(begin.data(), begin.size());
  return file &&
         std::ranges::find(BEGINNINGS, std::string_view(begin.data(), begin.size())) != BEGINNINGS.end();
}

LinkRecording load_link_recording(const std::string& path) {
  const Pcap file = open_capture(path);
  LinkRecording recording;
  Reader reader(recording);
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int result = 0;
  for (size_t number = 1; recording.note.empty(); ++number) {
    result = pcap_next_ex(file.get(), &header, &data);
    if (result != 1) break;
    const std::string problem = reader.add(*header, {reinterpret_cast<const char*>(data), header->caplen});
    if (!problem.empty()) recording.note = "packet " + std::to_string(number) + " " + problem;
  }
  if (result == PCAP_ERROR) recording.note = pcap_geterr(file.get());
  if (recording.events.empty())
    throw FileError(path + ": holds no event of a receiver's link" +
                    (recording.note.empty() ? "" : ": " + recording.note));
  return recording;
}

}  // namespace ecu::koru::sim
