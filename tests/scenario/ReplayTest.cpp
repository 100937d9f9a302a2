// A recorded session, replayed: the same messages, and every difference is reported.

#include <gmock/gmock.h>

#include "app/ApplyConfiguration.h"
#include "app/Version.h"
#include "input/LinkRecorder.h"
#include "input/RecordedDevices.h"
#include "scenario/World.h"
#include "sim/replay/ReplayedService.h"

namespace {

using namespace ecu::koru;
using namespace test;
using namespace testing;

/// A session to record. The defaults are a unit with its receiver, and nothing happens.
struct Session {
  const char* name = "";
  std::string hwversion = "zpt";
  double seconds = 60;
  double late = 0;                 ///< the service waits that long for its broker
  uint64_t max_bytes = 1U << 30U;  ///< of a file of the recording
  std::string faults{};
  bool has_receiver = true;     ///< false: nothing comes
  bool fresh_receiver = false;  ///< with factory settings
  double gone_from = -1, gone_to = -1;
  std::vector<std::pair<double, std::string>> changes{};  ///< what the unit says
};

gpspub::Settings settings() {
  config::Configuration config;
  gpspub::registerKeys(config);
  config.set("health_topic", "test/health");
  return gpspub::readSettings(config);
}

std::vector<sim::Publication> saidBy(sim::UnitState& unit, const std::string& command) {
  return unit.apply(sim::parse_command(command));
}

/// A message: its time, topic and bytes.
using Message = std::tuple<int64_t, std::string, std::vector<uint8_t>>;
using Messages = std::vector<Message>;

/// Runs the service and records its link in `path`. Returns what it published.
Messages record(const Session& session, const std::string& path) {
  sim::ReceiverOptions receiver;
  if (!session.faults.empty()) receiver.faults = sim::parse_faults(session.faults);
  receiver.power_up_defaults = session.fresh_receiver;
  SimulatedReceiver simulated(receiver);
  Script nothing;
  ByteSource& source = session.has_receiver ? static_cast<ByteSource&>(simulated) : nothing;
  std::unique_ptr<WatchedSource> watched;
  World world(
      [&](World& in) {
        in.time.advance_to_us(static_cast<int64_t>(session.late * S));
        watched = std::make_unique<WatchedSource>(in.time, source, in.terminal);
        auto recorder =
            std::make_shared<gpspub::LinkRecorder>(gpspub::LinkRecorder::Options{path, session.max_bytes});
        return std::make_unique<gpspub::SerialInput>(
            gpspub::recorded(std::make_unique<sim::VirtualTerminal>(in.time, *watched), recorder));
      },
      {.hwversion = session.hwversion});
  gpspub::applyConfiguration({}, settings(), *world.service);
  world.service->setHealthTopic("test/health", gpspub::versionText());
  const auto gone = [&](bool is) { world.terminal.gone = world.terminal.missing = is; };
  if (session.gone_from >= 0) world.at(session.gone_from, [&] { gone(true); });
  if (session.gone_to >= 0) world.at(session.gone_to, [&] { gone(false); });
  sim::UnitState unit(true);
  for (const auto& [seconds, command] : session.changes) {
    world.at(seconds, [&, said = saidBy(unit, command)] {
      for (const auto& each : said) world.bus->inject(each.topic, each.message);
    });
  }
  world.run(session.seconds);
  Messages messages;
  for (const auto& each : world.bus->records())
    messages.emplace_back((each.steady_ns - ScenarioTime::START_NS) / 1000, each.topic, each.message.payload);
  return messages;
}

struct Replay {
  Messages messages;
  std::vector<std::string> differences;
  std::string problem;
};

Replay replay(const sim::LinkRecording& recording, const Session& session,
              const gpspub::Options& service_options = {}) {
  Replay result;
  sim::Differences differences([&](int64_t at_us, const std::string& text) {
    result.differences.push_back(std::to_string(at_us / MS) + " ms: " + text);
  });
  sim::ReplayedService service(
      recording, differences,
      [&](const com::MemoryTransport::Record& each, int64_t at_us, int64_t /*wall_us*/) {
        result.messages.emplace_back(at_us, each.topic, each.message.payload);
        return true;
      },
      ScenarioTime::START_NS / 1e9);
  sim::ReplayOptions options;
  options.service = service_options;
  sim::Requests requests{.unit = sim::UnitState(true), .said_once = {}};
  options.unit.variables = {"hwversion=" + session.hwversion};
  requests.add_all(options.unit);
  service.say(requests.unit.everything());
  for (const auto& [seconds, command] : session.changes)
    for (auto& each : saidBy(requests.unit, command))
      service.say_at(static_cast<int64_t>(seconds * S), std::move(each));
  result.problem = service.start(options, settings());
  if (result.problem.empty()) service.run(INT64_MAX);
  return result;
}

TEST(Replay, GivesTheSameMessagesAtTheSameTimes) {
  const std::string bad_line = "drop=0.05,corrupt=0.1,split=0.1,garbage-ubx=0.1";
  const std::vector<Session> sessions{
      {.name = "a drive"},
      {.name = "a unit with a time service", .hwversion = "qrx"},
      {.name = "a receiver with factory settings", .fresh_receiver = true},
      {.name = "a bad line and a stubborn receiver",
       .seconds = 120,
       .faults = bad_line + ",nak=0624,late=300,lose=0.3,power-cycle@20"},
      {.name = "a receiver that never hears", .seconds = 120, .faults = "mute"},
      {.name = "a recording in two files", .max_bytes = 400'000},
      {.name = "silence", .faults = "silence=7@20"},
      {.name = "a late broker, and nothing comes", .late = 1.4, .has_receiver = false},
      {.name = "a device that comes late", .gone_from = 0, .gone_to = 20.5},
      {.name = "a device that goes away and comes back", .gone_from = 12.345, .gone_to = 20.5},
      {.name = "radio silence", .changes = {{20.5, "blackout on"}, {41.25, "blackout off"}}},
      {.name = "GNSS off and on, systems",
       .changes = {{10, "param 0xA00F 00"}, {21.5, "param 0xA00F 01"}, {40, "param 0xA020 00"}}},
      {.name = "a time zone", .changes = {{10.5, "timezone +05:30 summer"}}}};
  for (const Session& session : sessions) {
    SCOPED_TRACE(session.name);
    const test::TempDir folder;
    const Messages then = record(session, folder / "link.pcap");
    ASSERT_GT(then.size(), 30U);
    std::vector<std::string> files{folder / "link.pcap"};
    if (session.max_bytes < 1U << 30U) files.insert(files.begin(), folder / "link.pcap.1");
    const Replay now = replay(sim::load_link_recordings(files), session);
    EXPECT_THAT(now.differences, IsEmpty());
    ASSERT_EQ(now.messages.size(), then.size());
    const auto [one, other] = std::ranges::mismatch(then, now.messages);
    EXPECT_EQ(one, then.end()) << "at " << std::get<0>(*one) << " us on " << std::get<1>(*one) << ", now at "
                               << std::get<0>(*other) << " us on " << std::get<1>(*other);
  }
}

using Kind = sim::LinkRecording::Kind;

void add(sim::LinkRecording& to, Kind kind, int64_t at_us, const std::string& bytes = {}, unsigned baud = 0) {
  const size_t begin = to.bytes.size();
  to.bytes += bytes;
  to.events.push_back({kind, baud, at_us, begin, to.bytes.size()});
}

/// Returns a port on which epochs arrive at these seconds, counted from 20.
sim::LinkRecording quiet(const std::vector<int>& seconds) {
  sim::LinkRecording recording;
  add(recording, Kind::opened, 0, {}, 38400);
  for (const int each : seconds) add(recording, Kind::from_receiver, (each - 20) * S + 500 * MS, epoch(each));
  return recording;
}

TEST(Replay, ReportsWhatTheServiceDoesOtherwise) {
  const test::TempDir folder;
  record({.seconds = 30}, folder / "link.pcap");
  const sim::LinkRecording recording = sim::load_link_recording(folder / "link.pcap");
  std::vector<size_t> sent;
  for (size_t i = 0; i < recording.events.size(); ++i)
    if (recording.events[i].kind == Kind::from_host) sent.push_back(i);
  ASSERT_GT(sent.size(), 6U);

  struct Row {
    const char* name;
    std::function<void(sim::LinkRecording&)> change;
    std::vector<Matcher<std::string>> differences;
    gpspub::Options options{};
  };
  gpspub::Options listening;
  listening.disable_hw_init = true;
  gpspub::Options fast = listening;
  fast.baud_rate = 57600;
  const auto third = static_cast<ptrdiff_t>(sent[3]);
  const std::vector<Row> rows{
      {"another byte",
       [&](sim::LinkRecording& of) { of.bytes[of.events[sent[3]].end - 1] ^= 1; },
       {MatchesRegex(".* ms: expected B5 62 .*, found B5 62 .*")}},
      {"a message less",
       [&](sim::LinkRecording& of) { of.events.erase(of.events.begin() + third); },
       {MatchesRegex(".* ms: expected nothing sent, found B5 62 .*")}},
      {"a message more",
       [&](sim::LinkRecording& of) { of.events.insert(of.events.begin() + third, of.events[sent[2]]); },
       {MatchesRegex(".* ms: expected B5 62 .*, found nothing sent")}},
      {"the rest is missing", [&](sim::LinkRecording& of) { of.events.resize(sent[3]); }, {}},
      {"another speed",
       [&](sim::LinkRecording& of) {
         of = quiet({20, 21, 22});
       },
       {StrEq("0 ms: expected the port at 38400 bit/s, found the port at 57600 bit/s")},
       fast},
      {"a port that the service closes after 3 s of silence",
       [&](sim::LinkRecording& of) {
         of = quiet({20, 21, 25});
       },
       {StrEq("4500 ms: expected the port left open, found it closed and opened again")},
       listening}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    sim::LinkRecording changed = recording;
    row.change(changed);
    EXPECT_THAT(replay(changed, {}, row.options).differences, ElementsAreArray(row.differences));
  }
}

}  // namespace
