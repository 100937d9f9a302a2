#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Support.h"
#include "support/VirtualClock.h"
#include "tools/tap/Player.h"

using namespace ecu::koru::tap;
using namespace testing;

namespace {

constexpr uint64_t S = 1'000'000'000;  // ns
const std::string HEADER = R"({"format":"satnav-tap recording","version":1,"wall_us":1000,"boot_ns":2000})";

std::string line(uint64_t boot_ns, const std::string& topic = "t") {
  return R"({"wall_us":1,"boot_ns":)" + std::to_string(boot_ns) + R"(,"retained":false,"topic":")" + topic +
         R"(","payload":"00fF"})";
}

}  // namespace

TEST(TapRecordingTest, AMessageComesBackAsItWas) {
  const std::vector<uint8_t> payload{0, 1, 0x7F, 0x80, 0xFF};
  const Arrival rows[] = {{"system/gnss/data", payload, 1'795'256'130'245'112, 7'731'245'112'001, false},
                          {"gr\xC3\xBC\xC3\x9F \"x\\", {}, 0, INT64_MAX, true}};
  for (const auto& row : rows) {
    const auto text = message_line(row);
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    const auto back = std::get<RecordedMessage>(read_message_line(text));
    EXPECT_EQ(back.topic, row.topic);
    EXPECT_THAT(back.payload, ElementsAreArray(row.payload));
    EXPECT_EQ(back.wall_us, row.wall_us);
    EXPECT_EQ(back.boot_ns, row.boot_ns);
    EXPECT_EQ(back.retained, row.retained);
  }
}

TEST(TapRecordingTest, BrokenLinesAreRefusedWithTheReason) {
  const auto with = [](const std::string& part, const std::string& instead) {
    auto text = line(5);
    return text.replace(text.find(part), part.size(), instead);
  };
  const struct {
    std::string text;
    const char* reason;
  } rows[] = {{"", "not a JSON object"},
              {"[1]", "not a JSON object"},
              {line(5).substr(0, 40), "not a JSON object"},
              {std::string(100'000, '['), "not a JSON object"},
              {HEADER, "another recording begins here"},
              {with(R"("wall_us":1)", R"("wall_us":-1)"), "wall_us is not a time"},
              {with(R"("wall_us":1)", R"("wall_us":253402300800000000)"), "wall_us is not a time"},
              {with(R"("boot_ns":5)", R"("boot_ns":18446744073709551615)"), "boot_ns is not a time"},
              {with(R"("boot_ns":5)", R"("boot_ns":"5")"), "boot_ns is not a time"},
              {with(R"("topic":"t")", R"("topic":"a/#")"), "topic is not the topic"},
              {with(R"("topic":"t")", R"("topic":"")"), "topic is not the topic"},
              {with("false", "0"), "retained is neither"},
              {with("00fF", "00f"), "payload is not"},
              {with("00fF", "0x0F"), "payload is not"}};
  for (const auto& row : rows) {
    const auto result = read_message_line(row.text);
    ASSERT_TRUE(std::holds_alternative<std::string>(result)) << row.text.substr(0, 100);
    EXPECT_THAT(std::get<std::string>(result), HasSubstr(row.reason));
  }
  for (const auto& [text, reason] : {std::pair(line(5), "not the header"),
                                     std::pair(std::string(HEADER).replace(43, 1, "2"), "too new")}) {
    const auto result = read_header_line(text);
    ASSERT_TRUE(std::holds_alternative<std::string>(result)) << text;
    EXPECT_THAT(std::get<std::string>(result), HasSubstr(reason));
  }
}

TEST(TapRecordingTest, ReadsAllThatIsWhole) {
  const std::string big(3'000'000, 'x');
  const struct {
    std::string text;
    size_t messages;
    std::vector<std::string> problems;  // after the file's name
    std::string note;
  } rows[] = {{"", 0, {" is empty, not a recording"}, ""},
              {HEADER, 0, {}, ""},
              {HEADER + "\n" + line(1) + "\n" + line(2), 2, {}, ""},  // only the line feed is lost
              {HEADER + "\n" + line(1) + "\n" + line(2).substr(0, 50),
               1,
               {},
               " ends in the middle of line 3; it was read up to there"},
              {HEADER + "\r\n" + line(1) + "\r\n", 1, {}, ""},
              {HEADER + "\nx\n" + line(2) + "\n\n" + line(3) + "\n",
               2,
               {" line 2: this is not a JSON object", " line 4: this is not a JSON object"},
               ""},
              {line(1) + "\n" + line(2) + "\n", 0, {" line 1: this is not the header of a recording"}, ""},
              {HEADER + "\n" + big + big + "\n" + line(1) + "\n",
               1,
               {" line 2: the line is longer than 4194304 bytes"},
               ""},
              {HEADER + "\n" + line(1, big) + "\n" + line(1) + "\n",
               1,
               {" line 2: topic is not the topic of a message"},
               ""},
              {HEADER + std::string("\n\0\n", 3) + line(1), 1, {" line 2: this is not a JSON object"}, ""}};
  const test::TempDir folder;
  for (const auto& row : rows) {
    const auto file = folder.write("x.rec", row.text);
    RecordingReader reader(file);
    ASSERT_TRUE(reader.open());
    RecordedMessage message;
    size_t messages = 0;
    while (reader.next(message) == RecordingReader::State::message) ++messages;
    EXPECT_EQ(messages, row.messages);
    std::vector<std::string> problems;
    for (const auto& problem : row.problems) problems.push_back(file + problem);
    EXPECT_EQ(reader.problems(), problems);
    EXPECT_EQ(reader.note(), row.note.empty() ? "" : file + row.note);
  }
  const auto many = folder.write("many.rec", HEADER + std::string(1000, '\n'));
  RecordingReader reader(many);
  ASSERT_TRUE(reader.open());
  RecordedMessage message;
  EXPECT_EQ(reader.next(message), RecordingReader::State::end);
  EXPECT_THAT(reader.problems(), SizeIs(11));
  EXPECT_EQ(reader.problems().back(), many + ": 989 further broken lines");
}

TEST(TapRecordingTest, APipeIsReadAsItFills) {
  const test::TempDir folder;
  const auto fifo = folder / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  RecordingReader reader(fifo);
  ASSERT_TRUE(reader.open());
  const int writer = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
  RecordedMessage message;
  EXPECT_EQ(reader.next(message), RecordingReader::State::waiting);
  const auto put = [&](const std::string& text) {
    EXPECT_EQ(write(writer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  };
  put(HEADER + "\n" + line(1).substr(0, 30));
  EXPECT_EQ(reader.next(message), RecordingReader::State::waiting);
  put(line(1).substr(30) + "\n");
  EXPECT_EQ(reader.next(message), RecordingReader::State::message);
  close(writer);
  EXPECT_EQ(reader.next(message), RecordingReader::State::end);
  EXPECT_FALSE(reader.rewind());
}

TEST(TapRecordingTest, TheClockOfAPlayedRecordingStopsWhenItIsHeldAndAtTheEnd) {
  const test::TempDir folder;
  const auto file = folder.write("x.rec", HEADER + "\n" + line(10 * S) + "\n" + line(14 * S) + "\n");
  test::VirtualClock clock;
  RecordingReader reader(file);
  ASSERT_TRUE(reader.open());
  size_t taken = 0;
  Player player(reader, {.speed = 2}, {.begin = [](const Moment&) {}, .take = [&](const auto&) { ++taken; }});
  const struct {
    std::optional<bool> hold;
    double after_s, now_s;
    size_t taken;
    bool over;
  } rows[] = {{{}, 0, 10, 1, false},   {{}, 1, 12, 1, false},      {true, 0, 12, 1, false},
              {true, 5, 12, 1, false}, {false, 0.5, 13, 1, false}, {{}, 5, 14, 2, true}};
  for (const auto& row : rows) {
    if (row.hold) player.hold(*row.hold);
    clock.time.advance(static_cast<int64_t>(row.after_s * S));
    EXPECT_EQ(player.play(), !row.over);
    EXPECT_EQ(static_cast<double>(player.now().boot_ns) / S, row.now_s);
    EXPECT_EQ(player.now().wall_us, row.over ? 1 : 1 + static_cast<int64_t>((row.now_s - 10) * 1e6));
    EXPECT_EQ(taken, row.taken);
    EXPECT_EQ(player.over(), row.over);
    EXPECT_EQ(player.due_ns() == INT64_MAX, row.over || row.hold == true);
  }
}

// Virtual time: due_ns() says when to come again, and play() hands on exactly what is due then.
TEST(TapRecordingTest, MessagesArePlayedAtTheirTimes) {
  const test::TempDir folder;
  const auto file = folder.write("x.rec", HEADER + "\n" + line(10 * S) + "\n" + line(11 * S) + "\n" +
                                              line(11 * S) + "\n" + line(9 * S) + "\n" + line(14 * S) + "\n");
  const struct {
    Player::Options options;
    size_t messages;
    std::vector<double> at_s;
  } rows[] = {{{.speed = 0}, 5, {0, 0, 0, 0, 0}},
              {{.speed = 1}, 5, {0, 1, 1, 1, 4}},
              {{.speed = 4}, 5, {0, 0.25, 0.25, 0.25, 1}},
              {{.speed = 0.5}, 5, {0, 2, 2, 2, 8}},
              {{.speed = 2, .loop = true}, 12, {0, 0.5, 0.5, 0.5, 2, 2.5, 3, 3, 3, 4.5, 5, 5.5}}};
  for (const auto& row : rows) {
    test::VirtualClock clock;
    const int64_t start = clock.time.steady_ns();
    RecordingReader reader(file);
    ASSERT_TRUE(reader.open());
    std::vector<double> at_s;
    int begun = 0;
    Player player(reader, row.options,
                  {.begin = [&](const Moment&) { ++begun; },
                   .take =
                       [&](const RecordedMessage&) {
                         at_s.push_back(static_cast<double>(clock.time.steady_ns() - start) / 1e9);
                         // Virtual time stands still, so end a turn that would not end.
                         if (at_s.size() >= row.messages) clock.time.advance(S);
                       }});
    while (player.play() && at_s.size() < row.messages)
      clock.time.advance(std::max<int64_t>(player.due_ns() - clock.time.steady_ns(), 0));
    at_s.resize(std::min(at_s.size(), row.messages));
    EXPECT_THAT(at_s, Pointwise(DoubleNear(1e-6), row.at_s)) << row.options.speed;
    EXPECT_EQ(begun, 1);
  }
}
