#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

namespace ecu::koru::tap {

/// Where a server listens.
struct ListenAddress {
  std::string text;  ///< for messages: "127.0.0.1:2947"
  sockaddr_storage address;
  socklen_t length;
};

/// Fills in the text of an address. Returns false if it has none.
[[nodiscard]] bool name_address(ListenAddress& address);

/// Reads "PORT", which is on the loopback interface, "ADDRESS:PORT" or "[IPV6]:PORT". Host names are not
/// understood. Empty if the text is something else.
[[nodiscard]] std::optional<ListenAddress> parse_listen_address(const std::string& text);

}  // namespace ecu::koru::tap
