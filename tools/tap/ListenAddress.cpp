#include "tools/tap/ListenAddress.h"

#include <netdb.h>

#include <cstdlib>
#include <cstring>

#include "platform/base/Numbers.h"

namespace ecu::koru::tap {

namespace {

constexpr const char* LOOPBACK = "127.0.0.1";

bool is_port(std::string_view text) {
  return to_number<uint16_t>(text).value_or(0) > 0;
}

std::optional<ListenAddress> resolve(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return std::nullopt;
  ListenAddress out{.host = {}, .text = {}, .address = {}, .length = found->ai_addrlen};
  std::memcpy(&out.address, found->ai_addr, found->ai_addrlen);
  freeaddrinfo(found);
  return name_address(out) ? std::optional(out) : std::nullopt;
}

std::optional<ListenAddress> parse(const std::string& text) {
  const size_t colon = text.rfind(':');
  std::string host = colon == std::string::npos ? LOOPBACK : text.substr(0, colon);
  const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
  const bool in_brackets = host.size() > 2 && host.starts_with('[') && host.ends_with(']');
  if (in_brackets) host = host.substr(1, host.size() - 2);
  const bool is_ipv6 = host.find(':') != std::string::npos;
  return is_port(port) && !host.empty() && in_brackets == is_ipv6 ? resolve(host, port) : std::nullopt;
}

}  // namespace

bool name_address(ListenAddress& address) {
  char host[NI_MAXHOST];
  char port[NI_MAXSERV];
  const auto* const raw = reinterpret_cast<const sockaddr*>(&address.address);
  if (getnameinfo(raw, address.length, host, sizeof host, port, sizeof port,
                  NI_NUMERICHOST | NI_NUMERICSERV) != 0)
    return false;
  const bool is_ipv6 = std::strchr(host, ':') != nullptr;
  address.host = host;
  address.port = static_cast<int>(std::strtol(port, nullptr, 10));
  address.text = (is_ipv6 ? "[" + std::string(host) + "]" : std::string(host)) + ":" + port;
  return true;
}

void add_listen_option(CLI::App& app, const std::string& name, std::optional<ListenAddress>& address,
                       const std::string& description) {
  const auto read = [name, &address](const std::string& text) {
    address = parse(text);
    if (!address) throw CLI::ValidationError(name, "not [ADDRESS:]PORT with a numeric address: " + text);
  };
  app.add_option_function<std::string>(name, read, description)->type_name("[ADDRESS:]PORT");
}

}  // namespace ecu::koru::tap
