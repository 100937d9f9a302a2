#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/com/Transport.h"
#include "proto/nvxproto.pb.h"

/// The unit's ECU variables and system parameters, read from their retained messages.
namespace ecu::koru::var {

/// An observer must not use it: the wait would hold the delivery thread that brings the message.
class VarClient {
 public:
  explicit VarClient(std::shared_ptr<com::ITransportClient> transport) : m_transport(std::move(transport)) {}
  /// Returns the variable's text from "system/var/NAME" (enveloped pb::RtSignal), or an empty text if it is
  /// absent or cannot be decoded. Waits at most ITransportClient::read_timeout().
  [[nodiscard]] std::string get(const std::string& name);

 private:
  std::shared_ptr<com::ITransportClient> m_transport;
};

using SystemParameterMap = std::map<uint32_t, pb::SystemParameterEntry>;

/// Fetches the parameters at its first use and keeps them. They may be many, so this is a short-lived object
/// of one thread.
class SysparamsClient {
 public:
  explicit SysparamsClient(std::shared_ptr<com::ITransportClient> transport)
      : m_transport(std::move(transport)) {}
  /// Returns one parameter of "system/sysparams", or nothing if it is absent.
  [[nodiscard]] std::optional<pb::SystemParameterEntry> get(uint32_t id);
  /// Returns all parameters, or an empty map if the message is absent or cannot be decoded. Waits as
  /// VarClient::get() does.
  [[nodiscard]] const SystemParameterMap& get_all();

 private:
  std::shared_ptr<com::ITransportClient> m_transport;
  std::optional<SystemParameterMap> m_parameters;
};

[[nodiscard]] std::unique_ptr<VarClient> create_var_client(std::shared_ptr<com::ITransportClient> transport);
[[nodiscard]] std::unique_ptr<SysparamsClient> create_sysparams_client(
    std::shared_ptr<com::ITransportClient> transport);

}  // namespace ecu::koru::var
