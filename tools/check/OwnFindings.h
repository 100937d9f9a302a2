#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/Settings.h"
#include "platform/com/MqttOptions.h"

namespace ecu::koru::check {

/// Something that the service takes without a word although it is most likely a mistake.
struct OwnFinding {
  std::string key;
  std::string problem;
  std::string taken{};    ///< empty: the value all the same
  bool replaces = false;  ///< `taken` is the key's value
};

[[nodiscard]] std::vector<OwnFinding> own_findings(const config::Configuration& config,
                                                   const gpspub::Settings& settings,
                                                   const com::MqttOptions& broker);

/// Returns the text about an unknown key, with the known one that it is most likely meant to be.
[[nodiscard]] std::string unknown_key(const std::string& key);

/// Returns what there is to say about a key's value without finding fault with it.
[[nodiscard]] std::string note_of(std::string_view key, const gpspub::Settings& settings);

}  // namespace ecu::koru::check
