#include "tools/check/BrokerCheck.h"

#include <mosquittopp.h>
#include <unistd.h>

#include <array>
#include <map>

#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "platform/com/MqttLink.h"
#include "platform/com/Topics.h"

namespace ecu::koru::check {

namespace {

using com::IMqttLink;
using com::MqttFailure;
using std::chrono::milliseconds;

constexpr const char* AREA = "broker";
constexpr const char* TOPICS = "topics";
constexpr milliseconds STEP{50};

std::vector<std::string> subscribed_topics(bool can_input) {
  std::vector<std::string> topics;
  for (const char* name : {"hwvariant", "hwversion", "hasgnss"})
    topics.push_back(topic::VARIABLE_PREFIX + name);
  for (const auto& name :
       {topic::SYSTEM_PARAMETERS, topic::PARAMETER_GNSS_ON, topic::PARAMETER_ANTENNA_ON, topic::PARAMETER_GPS,
        topic::PARAMETER_GLONASS, topic::PARAMETER_GALILEO, topic::PARAMETER_BEIDOU, topic::BLACKOUT_MODE,
        topic::HW_VERSION, topic::GNSS_SOURCE, topic::TIME_ZONE, topic::LOG_CONFIG})
    topics.push_back(name);
  if (!can_input) return topics;
  for (const auto& name : {topic::VP1_RX, topic::VP2_RX, topic::VDS_RX, topic::TD_RX, topic::P2C1_RX})
    topics.push_back(name);
  return topics;
}

/// In the order of MqttFailure::Kind.
constexpr std::array<const char*, 6> KINDS{"no connection: ",
                                           "the login is not answered: ",
                                           "this is no MQTT broker: ",
                                           "the broker refuses the login: ",
                                           "TLS failed: ",
                                           "the broker breaks the protocol: "};

std::string text_of(const MqttFailure& failure) {
  return KINDS[static_cast<size_t>(failure.kind)] + logging::escaped(failure.reason) +
         logging::escaped(failure.seen);
}

/// The answers to the subscriptions, as far as they came in time.
class Subscriptions {
 public:
  Subscriptions(IMqttLink& link, const std::vector<std::string>& topics) : m_link(link) {
    for (const auto& name : topics) m_asked[link.subscribe(name)] = name;
    m_count = m_asked.size();
  }

  void wait(milliseconds timeout) {
    const auto end = steady_now() + timeout;
    while (!m_asked.empty() && !m_failure && steady_now() < end) {
      m_link.wait(STEP);
      m_failure = m_link.work();
      for (const auto& [mid, granted] : m_link.take_notes().answers) {
        const auto answered = m_asked.extract(mid);
        if (answered && !granted) m_refused.push_back(answered.mapped());
      }
    }
  }

  void tell(Report& report) const {
    for (const auto& name : m_refused) report.find(TOPICS, name, "the broker refuses the subscription");
    if (m_failure) {
      report.find(TOPICS, "to subscribe", "the connection is lost: " + text_of(*m_failure));
    } else if (!m_asked.empty()) {
      report.find(TOPICS, "to subscribe",
                  logging::text(m_asked.size(), " of ", m_count, " are not answered"));
    } else {
      report.note(TOPICS, "to subscribe",
                  logging::text(m_count - m_refused.size(), " of ", m_count,
                                " accepted; a broker may accept one and still deliver nothing"));
    }
    report.note(TOPICS, "to publish", "not tried; a broker does not tell which ones it refuses");
  }

 private:
  IMqttLink& m_link;
  std::map<int, std::string> m_asked;
  size_t m_count = 0;
  std::vector<std::string> m_refused;
  IMqttLink::Failure m_failure;
};

void say_goodbye(IMqttLink& link) {
  link.disconnect();
  for (int tries = 0; tries < 5 && !link.work(); ++tries) link.wait(STEP);
}

com::MqttOptions own_options(const File& file) {
  com::MqttOptions options = file.broker;
  options.client_name = own_client_name();
  return options;
}

/// Returns why there is no login; empty if there is one.
std::string log_in(IMqttLink& link, const com::MqttOptions& options) {
  if (!link.prepare()) return "not tried: the login or the TLS files in the configuration cannot be used";
  const auto end = steady_now() + options.connect_timeout;
  const auto failure = link.establish([end] { return steady_now() >= end; });
  if (!failure) return {};
  return steady_now() >= end ? "no answer within connect_timeout_ms" : text_of(*failure);
}

}  // namespace

std::string own_client_name() {
  return "satnav-check-" + std::to_string(getpid());
}

bool check_broker(const File& file, Report& report) {
  const auto options = own_options(file);
  const std::string peer = logging::text(logging::escaped(options.host), ":", options.port);
  const auto link = com::make_mqtt_link(options);
  if (const auto failure = log_in(*link, options); !failure.empty()) {
    report.find(AREA, peer, failure);
    return false;
  }
  const std::string user = options.username.empty() ? "logged in without a name"
                                                    : "logged in as " + logging::escaped(options.username);
  report.note(AREA, peer, user + (options.tls_ca.empty() ? ", without TLS" : ", with TLS"));
  say_goodbye(*link);
  return true;
}

void check_topics(const File& file, bool can_input, Report& report) {
  const auto options = own_options(file);
  const auto link = com::make_mqtt_link(options);
  if (const auto failure = log_in(*link, options); !failure.empty())
    return report.find(TOPICS, "to subscribe", failure);
  Subscriptions subscriptions(*link, subscribed_topics(can_input));
  subscriptions.wait(options.var_timeout);
  subscriptions.tell(report);
  say_goodbye(*link);
}

}  // namespace ecu::koru::check
