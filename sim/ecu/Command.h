#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "proto/nvxproto.pb.h"

/// The commands of the simulated unit, one a line. They are the same on the command line, in a file and
/// on standard input.
namespace ecu::koru::sim {

// Commands that change the unit's state.
struct SetVariable {
  std::string name;
  std::string text;
};
struct SetParameter {
  uint32_t id;
  std::string value;  ///< bytes
  bool has_otaid;
};
struct SetTimeZone {
  pb::TimeZone zone;
};
struct SetBlackout {
  bool on;
};
struct SetHardwareVersion {
  std::string text;
};

// Commands that are published once and not remembered.
struct AnnounceSource {
  pb::GnssSource::Source source;
};
struct SetLogFlags {
  std::string value;  ///< bytes, lowest first
};
struct SendRaw {
  std::string topic;
  std::string payload;  ///< sent as it is, without an envelope
  bool retained;
};

// Commands for the session itself.
struct ShowHelp {};
struct Quit {};

using Command = std::variant<SetVariable, SetParameter, SetTimeZone, SetBlackout, SetHardwareVersion,
                             AnnounceSource, SetLogFlags, SendRaw, ShowHelp, Quit>;

/// The command does not exist or its arguments are wrong. what() says what was expected.
class BadCommand : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

/// Returns true if the command is published once and is not part of the unit's state.
[[nodiscard]] bool is_said_once(const Command& command);
/// Returns true for help and quit.
[[nodiscard]] bool concerns_session(const Command& command);

/// Returns true if the line holds no command: it is blank, or a comment that begins with '#'.
[[nodiscard]] bool is_blank(std::string_view line);

/// Throws BadCommand.
[[nodiscard]] Command parse_command(std::string_view line);

/// Returns every command with its arguments and meaning, one line each.
[[nodiscard]] std::string command_help();

}  // namespace ecu::koru::sim
