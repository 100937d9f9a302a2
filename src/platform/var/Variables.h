#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/com/Transport.h"
#include "proto/nvxproto.pb.h"

/// The unit's ECU variables and system parameters, read from their retained messages.
namespace ecu::koru::var {

/// An observer must not use it: the wait would hold the delivery thread that brings the message.
class IVarClient {
 public:
  virtual ~IVarClient() = default;
  /// Returns the variable's text from "system/var/NAME" (enveloped pb::RtSignal), or an empty text if it is
  /// absent or cannot be decoded. Waits at most ITransportClient::read_timeout().
  [[nodiscard]] virtual std::string get(const std::string& name) = 0;
};

using SystemParameterMap = std::map<uint32_t, pb::SystemParameterEntry>;

/// Fetches the parameters at its first use and keeps them. They may be many, so this is a short-lived object
/// of one thread.
class ISysparamsClient {
 public:
  virtual ~ISysparamsClient() = default;
  /// Returns one parameter of "system/sysparams", or nothing if it is absent.
  [[nodiscard]] virtual std::optional<pb::SystemParameterEntry> get(uint32_t id) = 0;
  /// Returns all parameters, or an empty map if the message is absent or cannot be decoded. Waits as
  /// IVarClient::get() does.
  [[nodiscard]] virtual const SystemParameterMap& get_all() = 0;
};

[[nodiscard]] std::unique_ptr<IVarClient> create_var_client(std::shared_ptr<com::ITransportClient> transport);
[[nodiscard]] std::unique_ptr<ISysparamsClient> create_sysparams_client(
    std::shared_ptr<com::ITransportClient> transport);

}  // namespace ecu::koru::var
