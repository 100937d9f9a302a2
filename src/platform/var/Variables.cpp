#include "platform/var/Variables.h"

#include <condition_variable>
#include <mutex>
#include <utility>

#include "platform/base/Logging.h"
#include "platform/com/PbInternalMessageAdapter.h"
#include "platform/com/Topics.h"

namespace ecu::koru::var {

namespace {

constexpr auto LOG = logging::module("koru.var");

class FirstMessage final : public com::ISubscriptionObserver {
 public:
  void message(const std::string& /*topic*/, const com::Message& message) override {
    const std::lock_guard lock(m_mutex);
    if (!m_message) m_message = message;
    m_arrived.notify_all();
  }

  std::optional<com::Message> wait(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_mutex);
    m_arrived.wait_for(lock, timeout, [this] { return m_message.has_value(); });
    return std::move(m_message);
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_arrived;
  std::optional<com::Message> m_message;
};

/// Returns the body of the topic's retained message. Returns nothing, after a record, if it does not come or
/// cannot be decoded.
template <typename Body>
std::optional<Body> read_retained(com::ITransportClient& transport, const std::string& topic) {
  const auto first = std::make_shared<FirstMessage>();
  if (!transport.subscribe(topic, first, 0)) return std::nullopt;
  const auto message = first->wait(transport.read_timeout());
  transport.unsubscribe(topic);
  if (!message) {
    LOG.info("Nothing on \"", logging::escaped(topic), "\"");
    return std::nullopt;
  }
  auto result = com::PbInternalMessageAdapter<Body>(1).deserialize(*message);
  if (result.success) return std::move(result.body);
  LOG.warning("The message on \"", logging::escaped(topic), "\" cannot be decoded");
  return std::nullopt;
}

}  // namespace

std::string VarClient::get(const std::string& name) {
  const auto body = read_retained<pb::RtSignal>(*m_transport, topic::VARIABLE_PREFIX + name);
  return body ? body->value() : std::string();
}

std::optional<pb::SystemParameterEntry> SysparamsClient::get(uint32_t id) {
  const auto& all = get_all();
  const auto found = all.find(id);
  return found == all.end() ? std::nullopt : std::optional(found->second);
}

const SystemParameterMap& SysparamsClient::get_all() {
  if (m_parameters) return *m_parameters;
  m_parameters.emplace();
  auto body = read_retained<pb::SystemParameters>(*m_transport, topic::SYSTEM_PARAMETERS);
  if (!body) return *m_parameters;
  for (auto& [id, entry] : *body->mutable_entries()) m_parameters->try_emplace(id, std::move(entry));
  return *m_parameters;
}

std::unique_ptr<VarClient> create_var_client(std::shared_ptr<com::ITransportClient> transport) {
  return std::make_unique<VarClient>(std::move(transport));
}

std::unique_ptr<SysparamsClient> create_sysparams_client(std::shared_ptr<com::ITransportClient> transport) {
  return std::make_unique<SysparamsClient>(std::move(transport));
}

}  // namespace ecu::koru::var
