#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/base/Configuration.h"
#include "platform/base/Logging.h"

/// Tables of configuration keys: each key with what it may be and the function that reads it. Whoever takes
/// the settings logs the findings; a program that only checks a file shows them.
namespace ecu::koru::config {

/// A setting that is not used as it is written, or that should be changed.
struct Finding {
  std::string_view key;  ///< lives as long as the program
  logging::Level level;  ///< of the record
  std::string record;    ///< what is logged about it
  std::string taken;     ///< what holds instead; empty: the setting all the same
};

inline void log(const logging::Module& module, const Finding& finding) {
  module.log(finding.level, finding.record);
}

/// A key that sets a part of `Target`.
template <typename Target>
struct Key {
  using Read = std::optional<Finding> (*)(std::string_view key, const std::string& text, Target& target);
  using Show = std::string (*)(const Target& target);

  std::string_view name;
  std::string_view allowed;  ///< for people
  Read read;                 ///< stores what a text means; the text of an absent key is its default or empty
  Show show;                 ///< returns what is stored; empty: nothing
  std::string_view preset = {};  ///< the default, if the configuration is to know it
};

/// Registers the keys and their defaults.
template <typename Target>
void add_keys(Configuration& config, std::span<const Key<Target>> keys) {
  for (const auto& key : keys) {
    config.add_optional_key(std::string(key.name));
    if (!key.preset.empty()) config.set_default(std::string(key.name), std::string(key.preset));
  }
}

/// Stores the values of the keys in `target`, and returns the findings in the order of the table.
template <typename Target>
[[nodiscard]] std::vector<Finding> read_keys(const Configuration& config, std::span<const Key<Target>> keys,
                                             Target& target) {
  std::vector<Finding> findings;
  for (const auto& key : keys) {
    if (auto finding = key.read(key.name, config.get(std::string(key.name)), target))
      findings.push_back(std::move(*finding));
  }
  return findings;
}

}  // namespace ecu::koru::config
