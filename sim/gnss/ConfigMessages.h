#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/gnss/Settings.h"

namespace ecu::koru::sim {

struct Capabilities {
  uint8_t supported_systems = 0x0F;  ///< bits of MON-GNSS
  uint8_t simultaneous = 3;
};

/// A message of class CFG that reads and writes one part of the settings.
struct ConfigMessage {
  UbxId id;
  /// Returns the payload that answers a poll with this payload; empty if this is not a poll of the message.
  std::optional<std::vector<uint8_t>> (*answer)(const Settings& settings, std::span<const uint8_t> query);
  /// Applies new settings. Returns false and changes nothing if the receiver refuses them.
  bool (*apply)(Settings& settings, std::span<const uint8_t> payload, const Capabilities& capabilities);
};

/// Returns null if this receiver does not have the message.
[[nodiscard]] const ConfigMessage* find_config_message(UbxId id);

}  // namespace ecu::koru::sim
