#include <string>

#include "platform/com/MqttClient.h"
#include "platform/com/MqttOptions.h"
#include "platform/com/Transport.h"

namespace ecu::koru::com {

std::shared_ptr<ITransportClient> create_client(std::unique_ptr<config::Configuration>& config,
                                                TransportType type) {
  if (!config || type != TransportType::MQTT) return nullptr;
  return std::make_shared<MqttClient>(read_mqtt_options(*config));
}

}  // namespace ecu::koru::com
