#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The format of a recording of the receiver's link: a pcap file with times in ns (UTC) and the link type
/// RTAC serial of https://www.tcpdump.org/linktypes/LINKTYPE_RTAC_SERIAL.html. Each packet is one event: a
/// header and a payload. The file's times are the system clock's, which may be set while the service runs;
/// those of the headers are steady and count from the start of the service, because its first time-outs do.
namespace ecu::koru::gpspub::linkrecord {

inline constexpr int LINK_TYPE = 250;

/// A piece is called TX or RX from the host's point of view. Readers skip the kinds that are not listed.
enum class EventKind : uint8_t {
  STATUS_CHANGE = 0,  ///< the payload is the text of a Status
  DATA_TX_START = 1,  ///< the payload went to the receiver
  DATA_RX_START = 2,  ///< the payload came from the receiver
};

// A header is, with numbers in big-endian order: seconds, microseconds, kind, control lines, a footer.
inline constexpr size_t SECONDS_OFFSET = 0;
inline constexpr size_t MICROSECONDS_OFFSET = 4;
inline constexpr size_t KIND_OFFSET = 8;
inline constexpr size_t CONTROL_LINES_OFFSET = 9;  // no line is asserted: the service uses none
inline constexpr size_t FOOTER_OFFSET = 10;        // 0
inline constexpr size_t HEADER_LEN = 12;

using Header = std::array<uint8_t, HEADER_LEN>;

/// `since_begin_us` is the steady time since the service began (stopwatch 0).
[[nodiscard]] constexpr Header makeHeader(EventKind kind, int64_t since_begin_us) {
  constexpr int64_t US_PER_S = 1'000'000;
  Header header{};
  const auto store = [&](size_t at, int64_t value) {
    for (size_t i = 0; i < 4; ++i) header.at(at + i) = static_cast<uint8_t>(value >> (24 - 8 * i));
  };
  store(SECONDS_OFFSET, since_begin_us / US_PER_S);
  store(MICROSECONDS_OFFSET, since_begin_us % US_PER_S);
  header.at(KIND_OFFSET) = static_cast<uint8_t>(kind);
  return header;
}

/// A change of the link. A bus without rates (SPI), and a device that is no terminal, has the rate 0.
///
///   "open 38400"   the port was opened at this rate, bit/s; "open" without a rate
///   "baud 38400"   this rate holds from now on; a file that begins while the port is open begins so, with
///                  "baud" without a rate
///   "close"        the port was closed
struct Status {
  enum class Kind : uint8_t { OPENED, RATE, CLOSED };
  Kind kind;
  unsigned baud = 0;
};

inline constexpr std::string_view OPENED_TEXT = "open";
inline constexpr std::string_view RATE_TEXT = "baud";
inline constexpr std::string_view CLOSED_TEXT = "close";

[[nodiscard]] inline std::string textOf(const Status& status) {
  if (status.kind == Status::Kind::CLOSED) return std::string(CLOSED_TEXT);
  std::string text(status.kind == Status::Kind::OPENED ? OPENED_TEXT : RATE_TEXT);
  return status.baud == 0 ? text : text + ' ' + std::to_string(status.baud);
}

}  // namespace ecu::koru::gpspub::linkrecord
