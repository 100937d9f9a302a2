#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "input/PcapFile.h"
#include "wire/LinkRecord.h"

namespace ecu::koru::gpspub {

/// Records the receiver's link in a file for its owner alone, in the format of wire/LinkRecord.h. The first
/// event begins the file. A recording that is there already becomes "FILE.1", and so does a file that has
/// reached the limit; an older "FILE.1" is replaced. A device file (/dev/full) is written as it is.
///
/// A failure ends the recording with one WARNING, and the service goes on. Each call leaves errno as it was.
/// Events are held and written together, with the first event after 5 s, when they fill 16 KiB, and at
/// the end: libpcap costs much more when it is called for each piece, between long waits.
///
/// Shared by the devices of an input. Service thread only.
class LinkRecorder {
 public:
  struct Options {
    std::string path;
    uint64_t max_bytes = 0;  ///< of each of the two files
  };
  explicit LinkRecorder(Options options) : m_options(std::move(options)) {}
  ~LinkRecorder();
  LinkRecorder(const LinkRecorder&) = delete;
  LinkRecorder& operator=(const LinkRecorder&) = delete;

  /// Returns why nothing may be recorded at a path: what is there is neither a recording nor a device. Empty
  /// if the path can be used.
  [[nodiscard]] static std::string refusal(const std::string& path);

  /// The port was opened at a rate in bit/s; 0: it has no rate.
  void opened(unsigned baud);
  /// The rate of the open port was set.
  void rateSet(unsigned baud);
  void closed();
  void received(std::span<const uint8_t> bytes) { record(linkrecord::EventKind::DATA_RX_START, bytes); }
  void sent(std::span<const uint8_t> bytes) { record(linkrecord::EventKind::DATA_TX_START, bytes); }

 private:
  void record(const linkrecord::Status& status);
  void record(linkrecord::EventKind kind, std::span<const uint8_t> payload);
  [[nodiscard]] bool begin();
  [[nodiscard]] bool makeRoom(int64_t now_ns, size_t payload_len);
  void hold(int64_t now_ns, linkrecord::EventKind kind, std::span<const uint8_t> payload);
  [[nodiscard]] bool writeHeld(int64_t now_ns);
  void fail(const std::string& reason);

  /// An event that is not in the file yet. Its payload follows that of the one before in m_held_bytes.
  struct Held {
    int64_t at_ns;  // steady
    size_t len;
    linkrecord::EventKind kind;
  };

  const Options m_options;
  std::vector<char> m_buffer;        // of m_file
  std::unique_ptr<PcapFile> m_file;  // null before the first event and after a failure
  std::vector<Held> m_held;
  std::vector<uint8_t> m_held_bytes;
  uint64_t m_bytes = 0;          // of the file, with the held events
  int64_t m_begin_ns = 0;        // of the service, steady
  int64_t m_wall_offset_ns = 0;  // system clock minus steady clock, read with the first held event
  int64_t m_written_ns = 0;      // when the held events were written last, steady
  bool m_failed = false;
  bool m_is_open = false;  // the port
  unsigned m_baud = 0;
};

}  // namespace ecu::koru::gpspub
