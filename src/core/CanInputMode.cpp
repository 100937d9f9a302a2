#include "core/CanInputMode.h"

#include <array>
#include <functional>
#include <utility>

#include "nmea/GnssInfo.h"
#include "publish/StatusSignals.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

constexpr int QOS = 0;

// In the order of subscription.
const std::array<std::reference_wrapper<const std::string>, 5> ICAN_TOPICS{
    GnssIcanObserver::topic_vp1_base, GnssIcanObserver::topic_vp2_base, GnssIcanObserver::topic_vds_base,
    GnssIcanObserver::topic_timedate_var6, GnssIcanObserver::topic_p2c1_base};

}  // namespace

CanInputMode::CanInputMode(std::shared_ptr<com::ITransportClient> transport, RunControl& run,
                           FixPublisher& publisher)
    : m_transport_client(std::move(transport)),
      m_run(run),
      m_publisher(publisher),
      m_gnss_ican_observer(std::make_shared<GnssIcanObserver>(run)) {}

void CanInputMode::runIcan() {
  m_gnss_ican_observer->restart();
  m_facts = {.source = FixFacts::Source::CAN};
  subscribeIcanMessages();
  while (m_run.inMode()) {
    m_run.reports().passBegins();
    const bool time_out = m_gnss_ican_observer->timeoutToSendFrame();
    if (!m_run.inMode()) break;
    const int32_t status = m_gnss_ican_observer->getGnssInfoStatus();
    const com::Burst burst(*m_transport_client);
    sendFrameUsingIcan();
    LOG.detail(logflag::CONNECTION, "runIcan time_out ", time_out, " gnss_status ", status,
               " m_comm_retries ", m_comm_retries);
    publishModuleErrorMessage(*m_transport_client, false);
    m_comm_retries = time_out ? m_comm_retries + 1 : 0;
    m_facts.frames_come = !time_out;
    m_run.reports().look();
  }
}

void CanInputMode::subscribeIcanMessages() {
  for (const std::string& topic : ICAN_TOPICS) {
    m_transport_client->subscribe(topic, m_gnss_ican_observer, QOS);
  }
}

void CanInputMode::unsubscribeIcanMessages() {
  for (const std::string& topic : ICAN_TOPICS) m_transport_client->unsubscribe(topic);
}

void CanInputMode::sendFrameUsingIcan() {
  // Take the record even without a broker, so that its date is not published late.
  GnssInfo info = m_gnss_ican_observer->takeGnssInfo();
  m_facts.takePosition(info);
  if (m_facts.status == FixFacts::VALID_STATUS) ++m_fixes;
  if (m_publisher.isConnected()) {
    if (m_run.isRunning()) m_publisher.publishGnssData(info, m_no_sentences);
  } else {
    ++m_unsent;
    LOG.detail(logflag::PUBLICATION, "DATA TO PUBLISH BUT NO MQTT ");
  }
}

}  // namespace ecu::koru::gpspub
