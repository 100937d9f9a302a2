#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/base/Keys.h"

namespace ecu::koru::gpspub {

inline constexpr size_t RAW_COMMANDS = 5;

/// A switch, and the text that sets it.
struct Switch {
  bool on = false;
  std::string text;
};

/// What the file sets of the service, without the options of the command line. The transport has its own
/// keys.
struct Settings {
  std::optional<logging::LogMode> log_mode;
  std::string log_level;                ///< empty: not given
  std::optional<uint32_t> debug_flags;  ///< nothing: not given
  std::string gnss_device;              ///< empty: as the hardware has it
  uint32_t baud_rate = 0;
  Switch disable_hw_init;
  std::optional<uint32_t> gnss_augmentation;  ///< nothing: by the systems
  std::string gnss_system;                    ///< has no effect
  Switch set_system_time;
  Switch radio_silence_configured;  ///< off changes nothing
  Switch disable_mqtt_system_selection;
  std::array<std::string, RAW_COMMANDS> raw_cmd_post;  ///< bytes; empty: none
  std::string signal_database;                         ///< empty: the built-in one
  std::string health_topic;                            ///< empty: none
  std::string record_link;                             ///< file; empty: nothing is recorded
  uint32_t record_link_size = 0;                       ///< MiB

  std::vector<config::Finding> findings;  ///< in the order of the table
};

/// The keys of Settings.
[[nodiscard]] std::span<const config::Key<Settings>> settingsKeys();

/// Registers all keys, those of the transport included, and their defaults.
void registerKeys(config::Configuration& config);

/// Reads the keys of Settings. Logs nothing.
[[nodiscard]] Settings readSettings(const config::Configuration& config);

}  // namespace ecu::koru::gpspub
