#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

namespace ecu::koru::gpspub {

/// A pcap file that is being written through libpcap. The library is loaded when the first file begins and
/// stays: with the libraries that it needs it takes 1.4 MiB of memory, which a service that records nothing
/// should not pay. Service thread only.
class PcapFile {
 public:
  /// Takes over `file`, which is empty, and writes the file's header. Returns null and the reason if libpcap
  /// cannot be used.
  [[nodiscard]] static std::unique_ptr<PcapFile> begin(std::FILE* file, int link_type, std::string& problem);
  /// Writes the bytes that are still held, and closes the file.
  ~PcapFile();
  PcapFile(const PcapFile&) = delete;
  PcapFile& operator=(const PcapFile&) = delete;

  /// The bytes of a file's header, and of a packet beside its own.
  static constexpr uint64_t FILE_HEADER_LEN = 24;
  static constexpr uint64_t PACKET_HEADER_LEN = 16;

  /// `wall_ns` is ns since 1970. Returns false, with errno, if the file takes no more.
  [[nodiscard]] bool add(int64_t wall_ns, std::span<const uint8_t> packet);
  /// Returns false, with errno, if the file does not take what is held.
  [[nodiscard]] bool flush();

 private:
  struct Library;
  static const Library* library(std::string& problem);
  PcapFile(const Library& library, void* pcap, void* dumper, std::FILE* file)
      : m_library(library), m_pcap(pcap), m_dumper(dumper), m_file(file) {}

  const Library& m_library;
  void* m_pcap;
  void* m_dumper;
  std::FILE* m_file;  // the dumper's
};

}  // namespace ecu::koru::gpspub
