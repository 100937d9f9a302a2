#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/gnss/Files.h"
#include "sim/gnss/LinkPlayback.h"
#include "support/Frames.h"
#include "support/Support.h"

using namespace ecu::koru::sim;
using namespace std::string_literals;
using test::bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Kind = LinkRecording::Kind;

constexpr int64_t MS = 1'000;  // us
const std::string A = test::ubx(0x06, 0x00), B = test::ubx(0x06, 0x01, "\x01"), C = test::ubx(0x0A, 0x04);
const std::string B2 = test::ubx(0x06, 0x01, "\x02");

struct Told {
  int64_t at_ms;
  Kind kind;
  std::string bytes = {};
};

LinkRecording recording_of(const std::vector<Told>& events) {
  LinkRecording recording;
  for (const Told& told : events) {
    const size_t begin = recording.bytes.size();
    recording.bytes += told.bytes;
    const bool has_rate = told.kind == Kind::opened || told.kind == Kind::rate;
    recording.events.push_back(
        {told.kind, has_rate ? 9600U : 0U, told.at_ms * MS, begin, recording.bytes.size()});
  }
  return recording;
}

/// A host in front of the playback; its clock starts at a time of its own.
struct Desk {
  explicit Desk(const std::vector<Told>& events) : recording(recording_of(events)) {}

  /// Lets time pass in steps of 1 ms, and returns what comes with the ms at which it comes.
  std::string pass(int64_t ms, bool held = true, unsigned baud = 9600) {
    std::string text;
    for (const int64_t end = now_ms + ms; now_ms < end; ++now_ms) {
      const std::string came = playback.advance_to(START_US + now_ms * MS, held, baud);
      if (!came.empty()) text += std::to_string(now_ms) + came + " ";
    }
    return text;
  }

  static constexpr int64_t START_US = 77'000'000;
  LinkRecording recording;
  std::vector<std::string> said;
  LinkPlayback playback{recording, [this](const std::string& text) { said.push_back(text); }};
  int64_t now_ms = 0;
};

}  // namespace

TEST(LinkPlaybackTest, PiecesComeAtTheirTimesAfterTheOpening) {
  Desk desk({{0, Kind::opened},
             {10, Kind::from_receiver, "a"},
             {25, Kind::from_receiver, "b"},
             {40, Kind::closed}});
  EXPECT_EQ(desk.pass(100, false), "");
  EXPECT_EQ(desk.pass(50), "110a 125b ");
  EXPECT_TRUE(desk.playback.finished());
  EXPECT_THAT(desk.said, IsEmpty());
}

TEST(LinkPlaybackTest, AnAnswerWaitsForItsCommandButNotForever) {
  const std::vector<Told> events{{0, Kind::opened},
                                 {20, Kind::from_host, A.substr(0, 3)},
                                 {20, Kind::from_host, A.substr(3)},
                                 {30, Kind::from_receiver, "a"},
                                 {40, Kind::from_host, B},
                                 {50, Kind::from_receiver, "b"}};
  Desk late(events);
  EXPECT_EQ(late.pass(120), "");
  late.playback.hear(A);
  EXPECT_EQ(late.pass(20), "130a ");
  late.playback.hear(B);
  EXPECT_EQ(late.pass(20), "150b ");
  late.playback.hear(C);  // the recorded host had ended by then
  late.playback.finish();
  EXPECT_EQ(late.playback.comparison().differences(), 0);
  Desk mute(events);
  EXPECT_EQ(mute.pass(1000), "330a 350b ") << "once out of step, it does not wait again";
  mute.playback.finish();
  EXPECT_EQ(mute.playback.comparison().differences(), 2);
}

TEST(LinkPlaybackTest, OpeningsKeepTheTwoInStep) {
  const std::vector<Told> events{{0, Kind::opened},
                                 {10, Kind::from_receiver, "a"},
                                 {500, Kind::from_receiver, "b"},
                                 {600, Kind::closed},
                                 {700, Kind::opened},
                                 {710, Kind::from_receiver, "c"},
                                 {2500, Kind::from_receiver, "d"}};
  Desk desk(events);
  EXPECT_EQ(desk.pass(100), "10a ");
  EXPECT_EQ(desk.pass(200, false), "") << "closed half a second before the recorded host";
  EXPECT_EQ(desk.pass(100, true, 4800), "310c ") << "as soon as it is open";
  EXPECT_EQ(desk.pass(1000, false), "") << "closed where the recorded host did not";
  EXPECT_EQ(desk.pass(2000), "3100d ");
  EXPECT_EQ(desk.playback.statistics().bytes_left_out, 1);
  EXPECT_THAT(desk.said, ElementsAre("the host's rate is 4800 bit/s, in the recording it was 9600 bit/s"));
}

TEST(LinkPlaybackTest, EachFrameThatDiffersIsOneDifference) {
  const struct {
    std::vector<std::string> sent;  // A, B, C are expected
    std::vector<std::string> differences;
  } rows[] = {
      {{A + B + C}, {}},
      {{A.substr(0, 5), A.substr(5) + B.substr(0, 1), B.substr(1) + C}, {}},
      {{A, C}, {"at byte 8: expected B5 62 06 01 01 00 01 09 26, found nothing"}},
      {{A, B2, C}, {"at byte 14: expected B5 62 06 01 01 00 01 09 26, found B5 62 06 01 01 00 02 0A 27"}},
      {{A, A, B, C}, {"at byte 8: expected nothing, found B5 62 06 00 00 00 06 18"}},
      {{A + "x" + B + C}, {"at byte 8: expected nothing, found 78"}},
      {{A},
       {"at byte 8: expected B5 62 06 01 01 00 01 09 26, found nothing",
        "at byte 17: expected B5 62 0A 04 00 00 0E 34, found nothing"}},
  };
  for (const auto& row : rows) {
    Desk desk({{0, Kind::opened}, {1, Kind::from_host, A}, {2, Kind::from_host, B}, {3, Kind::from_host, C}});
    desk.pass(5);
    for (const auto& sent : row.sent) desk.playback.hear(sent);
    desk.pass(500);
    desk.playback.finish();
    std::vector<std::string> expected;
    for (const auto& difference : row.differences)
      expected.push_back("the host differs from the recording " + difference);
    EXPECT_EQ(desk.said, expected);
    EXPECT_EQ(desk.playback.comparison().differences(), expected.size());
  }
}

/// Returns a packet of a recording, with its own header.
std::string packet(uint32_t us, uint8_t kind, const std::string& payload) {
  const auto big = [](uint32_t n) {
    return std::string{char(n >> 24), char(n >> 16), char(n >> 8), char(n)};
  };
  const std::string length{char(12 + payload.size()), 0, 0, 0};
  return bytes("00F15365 01000000") + length + length + big(us / 1'000'000) + big(us % 1'000'000) +
         std::string{char(kind), 0, 0, 0} + payload;
}

TEST(LinkRecordingTest, IsReadAsFarAsItGoes) {
  const test::TempDir folder;
  const std::string rtac = bytes("4D3CB2A1 0200 0400 00000000 00000000 FFFF0000 FA000000");
  const std::string good =
      packet(7'000'001, 0, "open 9600") + packet(8'000'001, 1, "to") + packet(8'000'002, 2, "from") +
      packet(8'000'003, 0, "new text") + packet(8'000'004, 9, "new kind") + packet(8'000'005, 1, "") +
      packet(8'000'006, 2, "") + packet(9'000'001, 0, "baud") + packet(9'000'002, 0, "close");
  const struct {
    std::string next, note;
  } rows[] = {
      {"", ""},
      {packet(9'000'003, 2, "A").substr(0, 20), "truncated dump file; tried"},
      {packet(9'000'001, 2, "A"), "packet 10 is earlier than the one before"},
      {bytes("00F15365 01000000 03000000 03000000") + "abc", "packet 10 is cut short"},
      {bytes("00F15365 01000000 0C000000 0D000000 00000009 00000003 02000000"), "packet 10 is cut short"},
      {bytes("00F15365 01000000 FFFFFF7F FFFFFF7F"), "invalid packet capture length"},
      {packet(4'000'000'000, 2, "A").replace(16, 1, "\x7F"), "is more than a day later"}};
  for (const auto& row : rows) {
    const auto recording = load_link_recording(folder.write("file", rtac + good + row.next));
    std::string text;
    for (const auto& event : recording.events)
      text += "ORCXS"[int(event.kind)] + std::to_string(event.at_us) + " " + std::to_string(event.baud) +
              std::string(recording.bytes_of(event)) + ",";
    EXPECT_EQ(text, "O0 9600,S1000000 0to,X1000001 0from,R2000000 0,C2000001 0,");
    EXPECT_THAT(recording.note, HasSubstr(row.note));
    EXPECT_EQ(recording.note.empty(), row.note.empty()) << recording.note;
    EXPECT_EQ(recording.begin_us, 7'000'001);
    EXPECT_EQ(recording.begin_wall_us, 1'700'000'000'000'000);
  }
}

TEST(LinkRecordingTest, OtherFilesAreRefused) {
  const test::TempDir folder;
  const std::string rtac = bytes("4D3CB2A1 0200 0400 00000000 00000000 FFFF0000 FA000000"),
                    ethernet = bytes("4D3CB2A1 0200 0400 00000000 00000000 FFFF0000 01000000");
  const struct {
    std::string content, error;
  } rows[] = {
      {ethernet, ": is a capture of link type EN10MB, not a recording of a receiver's link (RTAC_SERIAL)"},
      {rtac, ": holds no event of a receiver's link"},
      {rtac + packet(1, 2, "A").substr(0, 20),
       ": holds no event of a receiver's link: truncated dump file; tried"},
      {rtac.substr(0, 9), ": truncated dump file; tried to read"},
      {"", ": truncated dump file; tried to read"},
      {"$GNRMC,,V,,,,,,,,,,N*4D\r\n", ": unknown file format"}};
  for (const auto& row : rows) {
    const auto path = folder.write("file", row.content);
    EXPECT_EQ(is_capture_file(path), row.content.starts_with("\x4D"));
    EXPECT_THAT([&] { (void)load_link_recording(path); },
                testing::ThrowsMessage<FileError>(HasSubstr(path + row.error)));
  }
  EXPECT_THAT([&] { (void)load_link_recording(folder / "none"); },
              testing::ThrowsMessage<FileError>((folder / "none") + ": No such file or directory"));
}
