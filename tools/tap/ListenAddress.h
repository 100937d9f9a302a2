#pragma once

#include <sys/socket.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

namespace ecu::koru::tap {

/// Where a server listens.
struct ListenAddress {
  std::string host;  ///< numeric: "127.0.0.1", "::1"
  int port = 0;
  std::string text;  ///< for messages: "127.0.0.1:2947"
  sockaddr_storage address;
  socklen_t length;
};

/// Adds an option that takes such an address: "PORT", which is on the loopback interface, "ADDRESS:PORT" or
/// "[IPV6]:PORT". Host names are not understood. `address` must outlive `app`.
void add_listen_option(CLI::App& app, const std::string& name, std::optional<ListenAddress>& address,
                       const std::string& description);

/// Fills in the text of an address. Returns false if it has none.
[[nodiscard]] bool name_address(ListenAddress& address);

}  // namespace ecu::koru::tap
