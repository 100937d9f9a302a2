#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace ecu::koru::sim {

/// The file cannot be used at all. what() says why, with its name.
class BadRecording : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads the packets of a pcap file, or of standard input for "-".
class PcapReader {
 public:
  /// Throws BadRecording if it cannot be opened or is no such file.
  explicit PcapReader(const std::string& path);
  ~PcapReader();
  PcapReader(const PcapReader&) = delete;
  PcapReader& operator=(const PcapReader&) = delete;

  struct Packet {
    int64_t wall_ns = 0;  ///< since 1970
    std::vector<uint8_t> bytes;
  };

  [[nodiscard]] int link_type() const;
  /// Returns false at the end of the file, or where it cannot be read on: problem() then says why.
  [[nodiscard]] bool next(Packet& packet);
  [[nodiscard]] const std::string& problem() const { return m_problem; }

 private:
  struct Close {
    void operator()(void* pcap) const;
  };
  const std::unique_ptr<void, Close> m_pcap;  // a pcap_t
  std::string m_problem;
};

}  // namespace ecu::koru::sim
