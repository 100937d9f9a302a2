#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "proto/nvxproto.pb.h"

/// The commands of the simulated unit: one text a line, the same on the command line, in a file and on
/// standard input.
namespace ecu::koru::sim {

// What changes the unit's state.
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

// What is said once and not remembered.
struct AnnounceSource {
  pb::GnssSource::Source source;
};
struct SetLogFlags {
  std::string value;  ///< bytes, lowest first
};
struct SendRaw {
  std::string topic;
  std::string payload;  ///< bytes as they are, no envelope
  bool retained;
};

// What the session itself does.
struct ShowHelp {};
struct Quit {};

using Command = std::variant<SetVariable, SetParameter, SetTimeZone, SetBlackout, SetHardwareVersion,
                             AnnounceSource, SetLogFlags, SendRaw, ShowHelp, Quit>;

/// A command that does not exist or whose arguments are wrong; what() says what was expected.
class BadCommand : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

/// True for what is said once; the rest is part of the unit's state or concerns the session.
[[nodiscard]] bool is_said_once(const Command& command);
/// True for help and quit.
[[nodiscard]] bool concerns_session(const Command& command);

/// True for a line without a command: empty, or a comment ('#' first).
[[nodiscard]] bool is_blank(std::string_view line);

/// Reads one command. Throws BadCommand.
[[nodiscard]] Command parse_command(std::string_view line);

/// Every command with its arguments and meaning, one line each.
[[nodiscard]] std::string command_help();

}  // namespace ecu::koru::sim
