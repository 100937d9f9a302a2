#include "sim/ecu/BridgeEnd.h"

#include <mosquitto.h>

#include <algorithm>
#include <stdexcept>

#include "platform/base/Logging.h"
#include "platform/base/Numbers.h"

namespace ecu::koru::sim {

namespace {

[[noreturn]] void refuse(std::string_view what, std::string_view text) {
  throw std::invalid_argument(
      logging::text("expected HOST[:PORT][/PREFIX], found '", logging::escaped(text), "': ", what));
}

/// Removes the host from the front and returns it; empty if the text names no host.
std::string take_host(std::string_view& rest) {
  const bool bracketed = rest.starts_with('[');
  if (bracketed) rest.remove_prefix(1);
  const size_t length = std::min(rest.find_first_of(bracketed ? "]" : ":/"), rest.size());
  if (bracketed && length == rest.size()) return {};  // the bracket is not closed
  std::string host(rest.substr(0, length));
  rest.remove_prefix(length);
  if (bracketed && !rest.empty()) rest.remove_prefix(1);
  return host;
}

}  // namespace

std::string BridgeEnd::text() const {
  const bool bracketed = host.find(':') != std::string::npos;
  return logging::text(bracketed ? "[" : "", host, bracketed ? "]" : "", ":", port, prefix.empty() ? "" : "/",
                       std::string_view(prefix).substr(0, prefix.size() - (prefix.empty() ? 0 : 1)));
}

BridgeEnd parse_bridge_end(std::string_view text) {
  std::string_view rest = text;
  BridgeEnd end{.host = take_host(rest)};
  if (end.host.empty()) refuse("there is no host", text);
  if (rest.starts_with(':')) {
    const std::string_view digits = rest.substr(1, rest.find('/') - 1);
    const auto port = to_int_within(digits, 1, 65535);
    if (!port) refuse("the port is no number from 1 to 65535", text);
    end.port = static_cast<int>(*port);
    rest.remove_prefix(1 + digits.size());
  }
  if (rest.empty()) return end;
  if (!rest.starts_with('/')) refuse("this is no port", text);
  rest.remove_prefix(1);
  const bool is_topic = mosquitto_pub_topic_check2(rest.data(), rest.size()) == MOSQ_ERR_SUCCESS;
  const bool is_text =
      mosquitto_validate_utf8(rest.data(), static_cast<int>(rest.size())) == MOSQ_ERR_SUCCESS;
  if (rest.empty() || rest.ends_with('/') || !is_topic || !is_text)
    refuse("the prefix is no start of a topic", text);
  end.prefix.append(rest).append("/");
  return end;
}

}  // namespace ecu::koru::sim
