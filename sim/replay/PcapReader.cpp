// Built with the time_t of the distribution's libraries, see CMakeLists.txt: pcap_pkthdr holds one. Include
// no header of this project here that declares a function with a time_t or a timeval.
#include "sim/replay/PcapReader.h"

#include <pcap/pcap.h>

#include <array>

namespace ecu::koru::sim {

namespace {

constexpr int64_t NS_PER_S = 1'000'000'000;

pcap_t* open(const std::string& path) {
  std::array<char, PCAP_ERRBUF_SIZE> error{};
  pcap_t* const pcap =
      pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error.data());
  if (pcap != nullptr) return pcap;
  const std::string reason = error.data();
  throw BadRecording(reason.find(path) == std::string::npos ? path + ": " + reason : reason);
}

pcap_t* handle(void* pcap) {
  return static_cast<pcap_t*>(pcap);
}

}  // namespace

void PcapReader::Close::operator()(void* pcap) const {
  pcap_close(handle(pcap));
}

PcapReader::PcapReader(const std::string& path) : m_pcap(open(path)) {}
PcapReader::~PcapReader() = default;

int PcapReader::link_type() const {
  return pcap_datalink(handle(m_pcap.get()));
}

bool PcapReader::next(Packet& packet) {
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  const int result = pcap_next_ex(handle(m_pcap.get()), &header, &bytes);
  if (result == PCAP_ERROR) m_problem = pcap_geterr(handle(m_pcap.get()));
  if (result != 1) return false;
  packet.wall_ns = static_cast<int64_t>(header->ts.tv_sec) * NS_PER_S + header->ts.tv_usec;  // ns here
  packet.bytes.assign(bytes, bytes + header->caplen);
  if (header->caplen == header->len) return true;
  m_problem = "a packet was cut short";
  return false;
}

}  // namespace ecu::koru::sim
