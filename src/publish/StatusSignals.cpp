#include "publish/StatusSignals.h"

#include "platform/com/Topics.h"
#include "publish/SignalGroups.h"
#include "wire/ServiceLog.h"

namespace ecu::koru::gpspub {

namespace {

/// A Boolean signal in the system group whose topic ends with its name.
struct TruthSignal {
  const std::string& topic;
  GroupTexts texts;
  const char* not_set;
};

const TruthSignal OPEN_CIRCUIT{topic::ANTENNA_OPEN_CIRCUIT,
                               {.not_packed = "Unable to pack SignalGroup for open_ciruit: "},
                               "Unable to set open_circ signal data to SignalGroup!"};
const TruthSignal SHORT_CIRCUIT{topic::ANTENNA_SHORT_CIRCUIT,
                                {.not_packed = "Unable to pack SignalGroup for short_ciruit: "},
                                "Unable to set short_circ signal data to SignalGroup!"};
const TruthSignal MODULE_ERROR{
    topic::MODULE_ERROR,
    {"Unable to create signal group for topic", "", "Unable to pack SignalGroup for"},
    "Unable to set_signal_data on status_gnss_module_error"};

bool createTruth(const TruthSignal& truth, bool value, const std::string& subject, com::Message& out) {
  const std::string_view signal = std::string_view(truth.topic).substr(truth.topic.rfind('/') + 1);
  return createGroup(truth.topic, truth.texts, subject, out, [&](rt::SignalGroup& group) {
    if (!group.set_signal_data(signal, {uint8_t{value}})) LOG.error(truth.not_set);
  });
}

void publishCircuit(com::ITransportClient& client, const TruthSignal& circuit, bool value, unsigned status,
                    const char* meaning) {
  const auto subject = logging::text("antenna_status: ", status, meaning, value ? "TRUE" : "FALSE");
  publishGroup(client, circuit.topic, createTruth, circuit, value, subject);
}

}  // namespace

void publishAntennaMessage(com::ITransportClient& client, unsigned status, unsigned /*power*/) {
  if (status < ANTENNA_OK || status > ANTENNA_OPEN) return;
  publishCircuit(client, OPEN_CIRCUIT, status == ANTENNA_OPEN, status, " is open circuited: ");
  publishCircuit(client, SHORT_CIRCUIT, status == ANTENNA_SHORT, status, " is short circuited: ");
}

void publishModuleErrorMessage(com::ITransportClient& client, bool error) {
  publishGroup(client, topic::MODULE_ERROR, createTruth, MODULE_ERROR, error, topic::MODULE_ERROR);
}

}  // namespace ecu::koru::gpspub
