#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::koru::sim {

/// A service's recording of its receiver's link: a pcap file of link type RTAC serial (250). Of its events
/// these count: DATA_RX_START (from the receiver), DATA_TX_START (from the host), and STATUS_CHANGE with one
/// of the texts "open [RATE]", "baud RATE" and "close". All others are skipped.
struct LinkRecording {
  enum class Kind : uint8_t { opened, rate, closed, from_receiver, from_host };
  struct Event {
    Kind kind;
    unsigned baud;      ///< of opened and rate, bit/s; 0: the link has no rate
    int64_t at_us;      ///< since the first event, never less than that of the event before
    size_t begin, end;  ///< of from_receiver and from_host, in `bytes`
  };

  std::vector<Event> events;  ///< at least one in a file that was loaded
  std::string bytes;
  int64_t begin_us = 0;       ///< of the first event, since the service began
  int64_t begin_wall_us = 0;  ///< system clock at the first event, since 1970
  std::string note;           ///< why the file was not read to its end; empty: it was

  [[nodiscard]] std::string_view bytes_of(const Event& event) const {
    return std::string_view(bytes).substr(event.begin, event.end - event.begin);
  }
};

/// Returns true if the file begins as a capture file does, pcap or pcapng.
[[nodiscard]] bool is_capture_file(const std::string& path);

/// Throws FileError if the file cannot be read, has another link type or holds no event.
[[nodiscard]] LinkRecording load_link_recording(const std::string& path);

}  // namespace ecu::koru::sim
