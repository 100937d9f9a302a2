#pragma once

#include <string>
#include <string_view>

namespace ecu::koru::sim {

/// A unit as a bridge reaches it: its broker, and the prefix of its topics there.
struct BridgeEnd {
  std::string host;
  int port = 1883;
  std::string prefix{};  ///< ends with '/'; empty: none

  /// Returns "HOST:PORT/PREFIX", for messages.
  [[nodiscard]] std::string text() const;
};

/// Parses "HOST[:PORT][/PREFIX]"; an IPv6 address stands in brackets. Throws std::invalid_argument, whose
/// what() says what was expected.
[[nodiscard]] BridgeEnd parse_bridge_end(std::string_view text);

}  // namespace ecu::koru::sim
