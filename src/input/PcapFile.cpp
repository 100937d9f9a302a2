// Built with the time_t of the distribution's libraries, see CMakeLists.txt: pcap_pkthdr holds one. Include
// no header of this project here that declares a function with a time_t or a timeval.
#include "input/PcapFile.h"

#include <dlfcn.h>
#include <pcap/pcap.h>

#include <cerrno>
#include <type_traits>

namespace ecu::koru::gpspub {

namespace {

constexpr const char* LIBRARY = "libpcap.so.0.8";  // Debian's soname
constexpr int LONGEST_PACKET = 65535;
constexpr int64_t NS_PER_S = 1'000'000'000;
static_assert(sizeof(pcap_pkthdr) == 2 * sizeof(long) + 8, "the header as the distribution's libpcap has it");

}  // namespace

struct PcapFile::Library {
  decltype(&pcap_open_dead_with_tstamp_precision) open_dead;
  decltype(&pcap_dump_fopen) dump_fopen;
  decltype(&pcap_dump) dump;
  decltype(&pcap_dump_flush) dump_flush;
  decltype(&pcap_dump_close) dump_close;
  decltype(&pcap_close) close;
};

const PcapFile::Library* PcapFile::library(std::string& problem) {
  static Library loaded{};
  void* const handle = ::dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  bool complete = handle != nullptr;
  const auto find = [&](auto& function, const char* name) {
    if (complete)
      function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(::dlsym(handle, name));
    complete = complete && function != nullptr;
  };
  find(loaded.open_dead, "pcap_open_dead_with_tstamp_precision");
  find(loaded.dump_fopen, "pcap_dump_fopen");
  find(loaded.dump, "pcap_dump");
  find(loaded.dump_flush, "pcap_dump_flush");
  find(loaded.dump_close, "pcap_dump_close");
  find(loaded.close, "pcap_close");
  if (complete) return &loaded;
  const char* const error = ::dlerror();
  problem = error != nullptr ? error : LIBRARY;
  problem += " (Debian's package is libpcap0.8)";
  return nullptr;
}

std::unique_ptr<PcapFile> PcapFile::begin(std::FILE* file, int link_type, std::string& problem) {
  const Library* const pcap = library(problem);
  pcap_t* const dead =
      pcap == nullptr ? nullptr : pcap->open_dead(link_type, LONGEST_PACKET, PCAP_TSTAMP_PRECISION_NANO);
  pcap_dumper_t* const dumper = dead == nullptr ? nullptr : pcap->dump_fopen(dead, file);
  if (dumper != nullptr) return std::unique_ptr<PcapFile>(new PcapFile(*pcap, dead, dumper, file));
  if (dead != nullptr) pcap->close(dead);
  if (problem.empty()) problem = "libpcap cannot begin a file";
  static_cast<void>(std::fclose(file));
  return nullptr;
}

PcapFile::~PcapFile() {
  m_library.dump_close(static_cast<pcap_dumper_t*>(m_dumper));
  m_library.close(static_cast<pcap_t*>(m_pcap));
}

bool PcapFile::add(int64_t wall_ns, std::span<const uint8_t> packet) {
  pcap_pkthdr header{};
  header.ts.tv_sec = static_cast<decltype(header.ts.tv_sec)>(wall_ns / NS_PER_S);
  header.ts.tv_usec = static_cast<decltype(header.ts.tv_usec)>(wall_ns % NS_PER_S);  // ns in such a file
  header.caplen = header.len = static_cast<bpf_u_int32>(packet.size());
  errno = 0;
  m_library.dump(static_cast<u_char*>(m_dumper), &header, packet.data());
  return std::ferror(m_file) == 0;
}

bool PcapFile::flush() {
  return m_library.dump_flush(static_cast<pcap_dumper_t*>(m_dumper)) == 0 && std::ferror(m_file) == 0;
}

}  // namespace ecu::koru::gpspub
