#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/com/Transport.h"

/// A recording of the bus, as text.
namespace test {

inline const std::string RECORDING_HEADER =
    "{\"format\":\"satnav-tap recording\",\"version\":1,\"wall_us\":1795256130000000,\"boot_ns\":0}\n";

inline std::string hex(const ecu::koru::com::Message& message) {
  std::string out;
  for (const uint8_t byte : message.payload)
    out += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  return out;
}

/// Returns a line for a message that came so long after the header; `payload` is in hex.
inline std::string line_of_recording(int64_t boot_ns, const std::string& topic, const std::string& payload,
                                     bool retained = false) {
  return nlohmann::json({{"wall_us", 1'795'256'130'000'000 + boot_ns / 1000},
                         {"boot_ns", boot_ns},
                         {"retained", retained},
                         {"topic", topic},
                         {"payload", payload}})
             .dump() +
         "\n";
}
inline std::string line_of_recording(int64_t boot_ns, const std::string& topic,
                                     const ecu::koru::com::Message& message) {
  return line_of_recording(boot_ns, topic, hex(message));
}

}  // namespace test
