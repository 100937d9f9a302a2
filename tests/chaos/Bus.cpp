#include "chaos/Bus.h"

#include <algorithm>
#include <chrono>

#include "proto/nvxproto.pb.h"

namespace test {

namespace {

constexpr size_t HEADER = 18;
constexpr size_t SENT_AT = 10;

uint64_t little_endian(const std::string& bytes, size_t at, size_t count) {
  uint64_t value = 0;
  for (size_t i = count; i > 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
  return value;
}

}  // namespace

Bus::Bus(uint16_t port) : m_client(nullptr), m_port(port) {
  mosquitto_lib_init();
  m_client = mosquitto_new(nullptr, true, this);
  mosquitto_threaded_set(m_client, true);
  mosquitto_connect_callback_set(m_client, [](mosquitto* client, void*, int code) {
    if (code == 0) mosquitto_subscribe(client, nullptr, "system/gnss/data", 0);
  });
  mosquitto_message_callback_set(m_client, [](mosquitto*, void* self, const mosquitto_message* message) {
    static_cast<Bus*>(self)->receive(*message);
  });
  m_thread = std::thread([this] { run(); });
}

Bus::~Bus() {
  m_stop = true;
  m_thread.join();
  mosquitto_destroy(m_client);
}

void Bus::run() {
  mosquitto_connect(m_client, "127.0.0.1", m_port, 60);
  while (!m_stop) {
    if (mosquitto_loop(m_client, 50, 1) == MOSQ_ERR_SUCCESS) continue;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    mosquitto_reconnect(m_client);
  }
}

void Bus::receive(const mosquitto_message& message) {
  const std::string payload(static_cast<const char*>(message.payload),
                            static_cast<size_t>(message.payloadlen));
  const std::lock_guard lock(m_mutex);
  ecu::koru::pb::GnssData data;
  if (payload.size() < HEADER || !data.ParseFromString(payload.substr(HEADER))) return;  // not the service's
  m_fixes.push_back({static_cast<int64_t>(little_endian(payload, SENT_AT, 8)),
                     static_cast<int64_t>(data.utc_time_us()), data.status()});
}

bool Bus::publish(const std::string& topic, const std::string& payload) {
  return mosquitto_publish(m_client, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(),
                           0, false) == MOSQ_ERR_SUCCESS;
}

std::vector<Fix> Bus::fixes() const {
  const std::lock_guard lock(m_mutex);
  return m_fixes;
}

int64_t Bus::count_since(int64_t boot_ns, int status) const {
  const std::lock_guard lock(m_mutex);
  return std::count_if(m_fixes.begin(), m_fixes.end(),
                       [&](const Fix& fix) { return fix.sent_ns > boot_ns && fix.status == status; });
}

}  // namespace test
