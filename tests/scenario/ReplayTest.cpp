// A recorded session, replayed: the same messages, and every difference is reported.

#include <gmock/gmock.h>

#include "app/ApplyConfiguration.h"
#include "app/Version.h"
#include "input/LinkRecorder.h"
#include "input/PcapFile.h"
#include "input/RecordedDevices.h"
#include "scenario/World.h"
#include "sim/replay/RecordedTraffic.h"
#include "sim/replay/ReplayedService.h"
#include "wire/LinkRecord.h"

namespace {

using namespace std::string_literals;
using namespace ecu::koru;
using namespace test;
using namespace testing;
namespace linkrecord = gpspub::linkrecord;

/// A session to record. The defaults are a unit with its receiver, and nothing happens.
struct Session {
  const char* name = "";
  std::string hwversion = "zpt";
  double seconds = 60;
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
        watched = std::make_unique<WatchedSource>(in.time, source, in.terminal);
        auto recorder =
            std::make_shared<gpspub::LinkRecorder>(gpspub::LinkRecorder::Options{path, 1U << 30U});
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

Replay replay(const sim::RecordedTraffic& recording, const Session& session,
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
    service.say_at(static_cast<int64_t>(seconds * S), saidBy(requests.unit, command));
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
      {.name = "silence", .faults = "silence=7@20"},
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
    auto recording = sim::read_recorded_traffic(folder / "link.pcap");
    EXPECT_EQ(recording.problem, "");
    recording.lag_us = 0;
    const Replay now = replay(recording, session);
    EXPECT_THAT(now.differences, IsEmpty());
    ASSERT_EQ(now.messages.size(), then.size());
    const auto [one, other] = std::ranges::mismatch(then, now.messages);
    EXPECT_EQ(one, then.end()) << "at " << std::get<0>(*one) << " us on " << std::get<1>(*one) << ", now at "
                               << std::get<0>(*other) << " us on " << std::get<1>(*other);
  }
}

/// Returns the events of a port on which epochs arrive at these seconds, counted from 20.
std::vector<sim::LinkEvent> quiet(const std::vector<int>& seconds) {
  using Kind = sim::LinkEvent::Kind;
  std::vector<sim::LinkEvent> events{{Kind::OPENED, 0, 38400}};
  for (const int each : seconds)
    events.push_back({Kind::RECEIVED, (each - 20) * S + 500 * MS, 0, epoch(each)});
  return events;
}

TEST(Replay, TheServiceMayHaveBegunAMomentBeforeTheFirstEvent) {
  const Session session{
      .name = "nothing comes, so the speeds are tried", .seconds = 60, .has_receiver = false};
  const test::TempDir folder;
  const Messages then = record(session, folder / "link.pcap");
  auto recording = sim::read_recorded_traffic(folder / "link.pcap");
  for (auto& each : std::span(recording.events).subspan(1)) each.at_us -= 1'500;
  const Replay now = replay(recording, session);
  EXPECT_THAT(now.differences, IsEmpty());
  const auto topicOf = [](const Message& message) { return std::get<1>(message); };
  EXPECT_TRUE(std::ranges::equal(now.messages, then, {}, topicOf, topicOf));
}

TEST(Replay, ReportsWhatTheServiceDoesOtherwise) {
  using Kind = sim::LinkEvent::Kind;
  const test::TempDir folder;
  record({.seconds = 30}, folder / "link.pcap");
  const sim::RecordedTraffic recording = sim::read_recorded_traffic(folder / "link.pcap");
  std::vector<size_t> sent;
  for (size_t i = 0; i < recording.events.size(); ++i)
    if (recording.events[i].kind == Kind::SENT) sent.push_back(i);
  ASSERT_GT(sent.size(), 6U);

  using Events = std::vector<sim::LinkEvent>;
  struct Row {
    const char* name;
    std::function<void(Events&)> change;
    std::vector<Matcher<std::string>> differences;
    gpspub::Options options{};
  };
  gpspub::Options listening;
  listening.disable_hw_init = true;
  gpspub::Options fast = listening;
  fast.baud_rate = 57600;
  const auto at = [&](size_t i) { return static_cast<ptrdiff_t>(sent[i]); };
  const std::vector<Row> rows{
      {"another byte",
       [&](Events& events) { events[sent[3]].bytes.back() ^= 1; },
       {MatchesRegex(".* ms: expected B5 62 .*, found B5 62 .*")}},
      {"a message less",
       [&](Events& events) { events.erase(events.begin() + at(3)); },
       {MatchesRegex(".* ms: expected nothing sent, found B5 62 .*")}},
      {"a message more",
       [&](Events& events) { events.insert(events.begin() + at(3), events[sent[2]]); },
       {MatchesRegex(".* ms: expected B5 62 .*, found nothing sent")}},
      {"another speed",
       [&](Events& events) {
         events = quiet({20, 21, 22});
       },
       {StrEq("0 ms: expected the port at 38400 bit/s, found the port at 57600 bit/s")},
       fast},
      {"a port that the service closes after 3 s of silence",
       [&](Events& events) {
         events = quiet({20, 21, 25});
       },
       {StrEq("4500 ms: expected the port left open, found it closed and opened again")},
       listening}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    sim::RecordedTraffic changed = recording;
    row.change(changed.events);
    EXPECT_THAT(replay(changed, {}, row.options).differences, ElementsAreArray(row.differences));
  }
}

/// Writes a file of packets, and one of raw bytes.
class Files {
 public:
  std::string pcap(const std::vector<std::string>& packets, int link_type = linkrecord::LINK_TYPE) const {
    std::string problem;
    std::string path = raw("");
    const auto file = gpspub::PcapFile::begin(std::fopen(path.c_str(), "wb"), link_type, problem);
    for (const std::string& each : packets)
      EXPECT_TRUE(
          file->add(1'400'000'000'123'456'789, {reinterpret_cast<const uint8_t*>(each.data()), each.size()}));
    EXPECT_TRUE(file->flush());
    return path;
  }
  std::string raw(std::string_view bytes) const {
    return m_folder.write(std::to_string(++m_count) + ".pcap", bytes);
  }
  [[nodiscard]] std::string missing() const { return m_folder / "nothing.pcap"; }

 private:
  test::TempDir m_folder;
  mutable int m_count = 0;
};

std::string packet(linkrecord::EventKind kind, int64_t us, const std::string& payload) {
  const auto header = linkrecord::makeHeader(kind, us);
  return std::string(header.begin(), header.end()) + payload;
}

/// Returns "kind@us baud bytes" of each event.
std::vector<std::string> summary(const sim::RecordedTraffic& recording) {
  std::vector<std::string> lines;
  for (const auto& each : recording.events)
    lines.push_back("ORCSX"s.at(static_cast<size_t>(each.kind)) + "@"s + std::to_string(each.at_us) + " " +
                    std::to_string(each.baud) + " " + each.bytes);
  return lines;
}

TEST(RecordedTraffic, AreReadAsFarAsTheyGo) {
  using enum linkrecord::EventKind;
  const Files files;
  const std::vector<std::string> packets{packet(STATUS_CHANGE, 7'000'001, "open 9600"),
                                         packet(DATA_RX_START, 7'000'002, "$GN\n"),
                                         packet(DATA_TX_START, 8'000'001, "\xB5\x62\0"s),
                                         packet(STATUS_CHANGE, 8'000'002, "something new"),
                                         packet(static_cast<linkrecord::EventKind>(9), 8'000'003, ""),
                                         packet(STATUS_CHANGE, 8'000'003, "baud 38400"),
                                         packet(STATUS_CHANGE, 9'000'001, "close"),
                                         packet(STATUS_CHANGE, 10'000'001, "open")};
  const std::vector<std::string> events{"O@0 9600 ",        "X@1 0 $GN\n",  "S@1000000 0 \xB5\x62\0"s,
                                        "R@1000002 38400 ", "C@2000000 0 ", "O@3000000 0 "};
  const auto whole = sim::read_recorded_traffic(files.pcap(packets));
  EXPECT_EQ(summary(whole), events);
  EXPECT_EQ(whole.problem, "");
  EXPECT_EQ(whole.begin_wall_us, 1'400'000'000'123'456);

  auto joined = packets;
  joined.push_back(packets.front());
  const auto first = sim::read_recorded_traffic(files.pcap(joined));
  EXPECT_EQ(summary(first), events);
  EXPECT_EQ(first.problem, "packet 9 is earlier than the one before: another recording begins");

  joined.back() = "too short";
  EXPECT_EQ(sim::read_recorded_traffic(files.pcap(joined)).problem, "packet 9 is shorter than its header");

  const std::string bytes = text_of(files.pcap(packets));
  constexpr size_t LAST = 16 + linkrecord::HEADER_LEN + 4;  // packet header, header, "open"
  for (size_t length = bytes.size() - 1; length > bytes.size() - LAST; --length) {
    const auto cut = sim::read_recorded_traffic(files.raw(std::string_view(bytes).substr(0, length)));
    EXPECT_EQ(summary(cut), std::vector(events.begin(), events.end() - 1)) << length;
    EXPECT_THAT(cut.problem, HasSubstr("truncated")) << length;
  }
}

TEST(RecordedTraffic, WithoutEventsAreRefused) {
  const Files files;
  const std::vector<std::pair<std::string, const char*>> rows{
      {files.missing(), "No such file or directory"},
      {"/", "Is a directory"},
      {files.raw(""), "truncated dump file"},
      {files.raw("$GNRMC,,V,,,,,,,,,,N*4D\r\n"), "unknown file format"},
      {files.pcap({}), "it holds no event of the receiver's link"},
      {files.pcap({"short"}), "packet 1 is shorter than its header"},
      {files.pcap({}, 1), "the link type is 1, not 250"}};
  for (const auto& [path, problem] : rows) {
    try {
      (void)sim::read_recorded_traffic(path);
      ADD_FAILURE() << problem;
    } catch (const sim::BadRecording& error) {
      EXPECT_THAT(error.what(), AllOf(HasSubstr(path), HasSubstr(problem)));
    }
  }
}

}  // namespace
