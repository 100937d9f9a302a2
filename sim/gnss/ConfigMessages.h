#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/gnss/Settings.h"

namespace ecu::koru::sim {

/// What this receiver can do at all.
struct Capabilities {
  uint8_t supported_systems = 0x0F;  ///< bits of MON-GNSS
  uint8_t simultaneous = 3;
};

/// A message of the class CFG that reads and writes one part of the settings.
struct ConfigMessage {
  UbxId id;
  /// The payload that answers a poll with this payload; nothing when it is no poll that this message knows.
  std::optional<std::vector<uint8_t>> (*answer)(const Settings& settings, std::span<const uint8_t> query);
  /// Takes new settings over; false, and nothing is changed, when the receiver refuses them.
  bool (*apply)(Settings& settings, std::span<const uint8_t> payload, const Capabilities& capabilities);
};

/// Nothing: this receiver does not have it.
[[nodiscard]] const ConfigMessage* find_config_message(UbxId id);

}  // namespace ecu::koru::sim
