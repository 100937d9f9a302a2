// The whole service in virtual time: bytes on its port and messages on its bus at any time, and faults
// of the device.

#include <array>

#include "fuzz/FuzzTarget.h"
#include "platform/com/Topics.h"
#include "scenario/World.h"
#include "wire/UbxFrame.h"

namespace fuzz {

using namespace ecu::koru;

namespace {

constexpr int64_t MAX_SCRIPT_US = 60'000'000;
constexpr int64_t AFTERWARDS_US = 8'000'000;

/// Plans an event at that time.
void plan(test::World& world, test::Script& script, int64_t at_us, Input& input) {
  const std::array TOPICS{topic::BLACKOUT_MODE, topic::HW_VERSION,
                          topic::GNSS_SOURCE,   topic::PARAMETER_GNSS_ON,
                          topic::PARAMETER_GPS, topic::PARAMETER_ANTENNA_ON,
                          topic::TIME_ZONE,     topic::LOG_CONFIG,
                          topic::VP1_RX,        topic::VP2_RX,
                          topic::VDS_RX,        topic::P2C1_RX,
                          topic::TD_RX};
  const uint8_t kind = input.byte();
  if (kind < 0xA0) {
    script.add(at_us, text(input.take(size_t{kind} * 4)));
  } else if (kind < 0xE0) {
    const auto form = input.byte();
    const Bytes payload = input.take(form % 32);
    world.time.at(at_us, [&world, topic = TOPICS[kind % TOPICS.size()],
                          message = form >= 128 ? enveloped_signal(payload) : enveloped(payload)] {
      world.bus->inject(topic, message);
    });
  } else if (kind < 0xF0) {
    world.time.at(at_us, [&world, gone = kind % 2 == 1] { world.terminal.gone = gone; });
  } else if (kind < 0xF8) {
    world.time.at(at_us, [&world, missing = kind % 2 == 1] { world.terminal.missing = missing; });
  } else {
    world.time.at(at_us, [&world, connected = kind % 2 == 0] { world.bus->set_connected(connected); });
  }
}

void check_sent(const test::TerminalState& terminal) {
  for (const auto& sent : terminal.sent) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(sent.bytes.data());
    require(gpspub::GnssUtils::isUbloxChecksumCorrect(bytes, static_cast<unsigned>(sent.bytes.size())),
            "what is sent has its checksum");
  }
}

}  // namespace

/// Input: the unit's variant, then events, each after a time in units of 20 ms.
void service(Bytes bytes) {
  Input input(bytes);
  const uint8_t variant = input.byte();
  test::World::Options options;
  options.hasgnss = variant % 8 == 7 ? "false" : "true";
  options.hwversion = variant % 2 == 0 ? "zpt" : "qrx";
  test::Script script;
  test::World world(script, options);
  world.service->setSystemTimeEnabled(true);
  world.service->enableMqttSystemSelection();
  world.service->enableLoggingControl();
  if (variant >= 128) world.service->disableHardwareInit();

  int64_t at_us = 0;
  while (!input.empty() && at_us < MAX_SCRIPT_US)
    plan(world, script, at_us += int64_t{input.byte()} * 20'000, input);
  const auto end_us = at_us + AFTERWARDS_US;
  static_cast<void>(world.run(static_cast<double>(end_us) / 1e6));

  require(world.time.now_us() <= end_us + 200'000, "a stop ends every wait");
  const auto seconds = end_us / 1'000'000;
  require(world.terminal.waits <= 30 * seconds + 3 * static_cast<int64_t>(bytes.size()),
          "the loop does not spin");
  require(static_cast<int64_t>(world.terminal.opens_us.size()) <=
              2 * seconds + 2 * static_cast<int64_t>(bytes.size()) / 8,
          "opens are paced");
  require(world.time.wall().tv_sec >= 0, "the clock is not set to a time before 1970");
  check_sent(world.terminal);
  check_published(*world.bus);
}

}  // namespace fuzz
