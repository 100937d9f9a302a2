// Prints the fixes of satnavd: fixes [HOST [PORT]]
#include <mosquitto.h>
#include <nvxproto.pb.h>

#include <cstdio>
#include <cstdlib>
using namespace ecu::koru::pb;

/// Reads the body after the envelope. Returns false if the message is not a fix in an envelope.
bool read_fix(const char* payload, int length, GnssData& fix) {
  constexpr int HEADER_LENGTH = 18;
  NVXHeader header;
  if (length < HEADER_LENGTH || !header.ParseFromArray(payload, HEADER_LENGTH)) return false;
  const uint64_t type = header.header() & 0xFFFF, header_length = header.header() >> 16 & 0xFFFF;
  const auto body_length = static_cast<int64_t>(header.header() >> 32);
  if (type == 0 || header_length != HEADER_LENGTH || body_length > length - HEADER_LENGTH) return false;
  return fix.ParseFromArray(payload + HEADER_LENGTH, static_cast<int>(body_length));
}
void on_message(mosquitto*, void*, const mosquitto_message* message) {
  if (GnssData fix; !read_fix(static_cast<const char*>(message->payload), message->payloadlen, fix))
    std::fprintf(stderr, "fixes: dropped a message\n");
  else if (fix.status() != 3)  // 3: valid, with a date
    std::printf("no valid fix, status %d\n", fix.status());
  else
    std::printf("%.3f %.6f %.6f %.1f km/h\n", static_cast<double>(fix.utc_time_us()) / 1e6, fix.latitude(),
                fix.longitude(), fix.speed());
  std::fflush(stdout);
}
int main(int argc, char** argv) {
  mosquitto_lib_init();
  mosquitto* const bus = mosquitto_new(nullptr, true, nullptr);
  mosquitto_message_callback_set(bus, on_message);
  mosquitto_connect_callback_set(  // subscribes again after each outage
      bus, [](mosquitto* m, void*, int) { mosquitto_subscribe(m, nullptr, "system/gnss/data", 0); });
  const int port = argc > 2 ? static_cast<int>(std::strtol(argv[2], nullptr, 10)) : 1883;
  int error = mosquitto_connect(bus, argc > 1 ? argv[1] : "127.0.0.1", port, 30);
  if (error == MOSQ_ERR_SUCCESS) error = mosquitto_loop_forever(bus, -1, 1);
  return std::fprintf(stderr, "fixes: %s\n", mosquitto_strerror(error)), EXIT_FAILURE;
}
