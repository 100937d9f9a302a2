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
constexpr uint8_t STATUS_CHANGE = 0;
constexpr uint8_t DATA_TX_START = 1;
constexpr uint8_t DATA_RX_START = 2;
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

/// Adds the events of packets to a recording.
class Reader {
 public:
  explicit Reader(LinkRecording& recording) : m_recording(recording) {}

  void add(std::string_view packet) {
    if (packet.size() < DATA_OFFSET) return;
    const int64_t time_us = number_in(packet.substr(0, 4)) * 1'000'000 + number_in(packet.substr(4, 4));
    const std::string_view data = packet.substr(DATA_OFFSET);
    switch (static_cast<uint8_t>(packet[EVENT_OFFSET])) {
      case STATUS_CHANGE:
        if (const auto status = status_of(data)) add(status->kind, status->baud, time_us, {});
        break;
      case DATA_TX_START:
        add(Kind::from_host, 0, time_us, data);
        break;
      case DATA_RX_START:
        add(Kind::from_receiver, 0, time_us, data);
        break;
      default:
        break;
    }
  }

 private:
  void add(Kind kind, unsigned baud, int64_t time_us, std::string_view data) {
    auto& events = m_recording.events;
    if (events.empty()) m_first_us = time_us;
    const int64_t at_us = std::max(time_us - m_first_us, events.empty() ? 0 : events.back().at_us);
    const size_t begin = m_recording.bytes.size();
    m_recording.bytes += data;
    events.push_back({kind, baud, at_us, begin, m_recording.bytes.size()});
  }

  LinkRecording& m_recording;
  int64_t m_first_us = 0;
};

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
  char error[PCAP_ERRBUF_SIZE] = "";
  const std::unique_ptr<pcap_t, void (*)(pcap_t*)> file(pcap_open_offline(path.c_str(), error), pcap_close);
  if (!file) throw FileError(path + ": " + error);
  if (const int type = pcap_datalink(file.get()); type != RTAC_SERIAL) {
    const char* const name = pcap_datalink_val_to_name(type);
    throw FileError(path + ": is a capture of link type " + (name != nullptr ? name : std::to_string(type)) +
                    ", not a recording of a receiver's link (RTAC_SERIAL)");
  }
  LinkRecording recording;
  Reader reader(recording);
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int result = 0;
  while ((result = pcap_next_ex(file.get(), &header, &data)) == 1)
    reader.add({reinterpret_cast<const char*>(data), header->caplen});
  if (result == PCAP_ERROR) recording.note = pcap_geterr(file.get());
  if (recording.events.empty())
    throw FileError(path + ": holds no event of a receiver's link" +
                    (recording.note.empty() ? "" : ": " + recording.note));
  return recording;
}

}  // namespace ecu::koru::sim
