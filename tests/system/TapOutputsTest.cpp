#include <sys/stat.h>

#include <cmath>

#include "support/Envelope.h"
#include "support/Frames.h"
#include "support/RecordedBus.h"
#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;
using ecu::koru::pb::GnssData;
using nlohmann::json;

namespace {

constexpr uint64_t NOON_US = 1'774'267'200'000'000;  // 2026-03-23T12:00:00Z

/// Reads without waiting from a socket or a terminal, and keeps everything.
class Reader : Unique {
 public:
  explicit Reader(int descriptor) : m_descriptor(descriptor) { EXPECT_GE(descriptor, 0); }
  ~Reader() { close(m_descriptor); }

  const std::string& text() {
    char piece[4096];
    for (pollfd state{m_descriptor, POLLIN, 0}; poll(&state, 1, 0) == 1;) {
      const ssize_t count = read(m_descriptor, piece, sizeof piece);
      m_ended = count <= 0;
      if (m_ended) break;
      m_text.append(piece, static_cast<size_t>(count));
    }
    return m_text;
  }
  bool gets(const std::string& part) {
    return eventually([&] { return text().find(part) != std::string::npos; }, PATIENCE_MS);
  }
  [[nodiscard]] bool ends() {
    return eventually([&] { return text().empty() || m_ended; }, PATIENCE_MS) && m_ended;
  }
  void write(std::string_view bytes) const {
    EXPECT_EQ(::write(m_descriptor, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

 private:
  const int m_descriptor;
  bool m_ended = false;
  std::string m_text;
};

int open_terminal(const std::string& link) {
  return open(link.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

/// Returns a fix that is only its sentences.
GnssData sentences(const Words& lines) {
  GnssData out;
  for (const auto& line : lines) out.add_nmea(line);
  return out;
}

/// Returns a valid fix so many seconds after noon, with nothing that need not be there.
GnssData fix_at(double seconds, float latitude = 48.5F, float longitude = 10.25F) {
  GnssData out;
  out.set_status(VALID);
  out.set_utc_time_us(NOON_US + static_cast<uint64_t>(seconds * 1e6));
  out.set_latitude(latitude);
  out.set_longitude(longitude);
  return out;
}

class TapOutputsTest : public SatnavdTest {
 protected:
  void SetUp() override {
    SatnavdTest::SetUp();
    m_unit = start_unit({"--no-defaults"});
  }

  void publish(const GnssData& fix, const std::string& command = "raw") const {
    m_unit->write_stdin(command + " system/gnss/data " + hex(enveloped(fix)) + "\n");
  }
  /// Leaves a fix on the broker, for programs that subscribe later.
  void retain(const GnssData& fix) const {
    publish(fix, "raw-retained");
    const auto is_there = [&] { return broker.log().find("'system/gnss/data'") != std::string::npos; };
    EXPECT_TRUE(eventually(is_there, PATIENCE_MS));
  }
  /// Starts satnav-tap, which has subscribed when this returns.
  [[nodiscard]] std::unique_ptr<Process> tap(Words options, Words launcher = {}) const {
    options.insert(options.begin(), "satnav-tap");
    options = tool(options, broker);
    launcher.insert(launcher.end(), options.begin(), options.end());
    auto out = std::make_unique<Process>(launcher);
    const std::string name = "SUBSCRIBE from satnav-tap-" + std::to_string(out->pid());
    EXPECT_TRUE(eventually([&] { return broker.log().find(name) != std::string::npos; }, PATIENCE_MS))
        << out->err();
    return out;
  }
  static void expect_valid(const std::string& schema, const std::string& file) {
    Process lint({"xmllint", "--noout", "--schema", SCHEMAS "/" + schema + ".xsd", file});
    EXPECT_EQ(lint.wait_for_exit(PATIENCE_MS), 0) << lint.err() << text_of(file);
  }

 private:
  std::unique_ptr<Process> m_unit;
};

/// Asks gpsd for its reports, until each device has a 3D fix and the satellites that it used.
std::string reports_of_gpsd(uint16_t port, const Words& devices) {
  std::string seen;
  const auto complete = [&seen](const std::string& device) {
    bool fix = false;
    bool sky = false;
    std::istringstream lines(seen.substr(0, seen.rfind('\n') + 1));
    for (std::string line; std::getline(lines, line);) {
      const json report = json::parse(line);
      if (report.value("device", "") != device) continue;
      fix = fix || (report["class"] == "TPV" && report.value("mode", 0) == 3 && report.contains("lat"));
      sky = sky || (report["class"] == "SKY" && report.value("uSat", 0) > 3 && !report["satellites"].empty());
    }
    return fix && sky;
  };
  std::unique_ptr<Reader> reader;
  const auto connected = [&] {
    const int socket = connect_to(port);
    if (socket >= 0) reader = std::make_unique<Reader>(socket);
    return socket >= 0;
  };
  if (!eventually(connected, PATIENCE_MS)) return "gpsd does not listen";
  reader->write("?WATCH={\"enable\":true,\"json\":true};\n");
  const auto all = [&] {
    seen = reader->text();
    return std::ranges::all_of(devices, complete);
  };
  return eventually(all, PATIENCE_MS) ? "" : seen;
}

}  // namespace

// The whole way, from the receiver to a program that knows nothing of the unit.
TEST_F(TapOutputsTest, GpsdReadsThemLikeAReceiver) {
  const auto link = folder / "gps";
  const auto port = std::to_string(free_port());
  const uint16_t gpsd_port = free_port();
  const auto unit = start_unit();
  const auto simulator = receiver({"--baud", "57600", "--rate", "5", "--gsv", "on"});
  const auto service = satnavd("baud_rate = 57600\n");
  const auto feeds = tap({"--nmea", "--tcp", port, "--pty", link});
  const Words devices = {"tcp://127.0.0.1:" + port, link};
  Process gpsd({"/usr/sbin/gpsd", "-N", "-n", "-S", std::to_string(gpsd_port), devices[0], devices[1]});
  EXPECT_EQ(reports_of_gpsd(gpsd_port, devices), "") << gpsd.err() << feeds->err() << service->err();
  expect_end(*feeds, SIGINT);
  EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST_F(TapOutputsTest, EveryTcpClientGetsEverySentenceUnlessItDoesNotRead) {
  const uint16_t port = free_port();
  retain(sentences({nmea("GPTXT,old")}));
  const auto feeds = tap({"--nmea", "--tcp", std::to_string(port)});
  auto late = std::make_unique<Reader>(connect_to(port));
  Reader good(connect_to(port));
  Reader mute(connect_to(port));
  publish(sentences({nmea("GPTXT,hello"), "\x1B[2J\r\n", "$GPTXT\n$GPTXT\r\n", "$GPTXT"}));
  std::string all = nmea("GPTXT,hello");
  ASSERT_TRUE(good.gets(all)) << feeds->err();
  good.write("$PUBX,00*33\r\n");  // as a program that takes it for a receiver
  late.reset();
  // More than fits into a socket: the rest follows when there is room.
  for (const auto& sentence : {nmea("GPTXT," + std::string(700'000, 'x')), nmea("GPTXT,next")}) {
    publish(sentences({sentence}));
    all += sentence;
    ASSERT_TRUE(good.gets(sentence)) << feeds->err();
  }
  EXPECT_TRUE(logged(*feeds, "is dropped: it does not read\n", 1)) << feeds->err();
  EXPECT_TRUE(mute.ends());
  EXPECT_TRUE(all.starts_with(mute.text()) && mute.text().size() < all.size()) << mute.text().size();
  late = std::make_unique<Reader>(connect_to(port));
  EXPECT_TRUE(eventually(
      [&] {
        publish(sentences({nmea("GPTXT,again")}));
        all += nmea("GPTXT,again");
        return late->text().starts_with(nmea("GPTXT,again"));
      },
      PATIENCE_MS));
  EXPECT_TRUE(eventually([&] { return good.text() == all; }, PATIENCE_MS));
  EXPECT_TRUE(eventually([&] { return feeds->out() == all; }, PATIENCE_MS));
  expect_end(*feeds, SIGINT);
}

TEST_F(TapOutputsTest, ATerminalHoldsNothingForTheNextReader) {
  const uint16_t port = free_port();
  const auto link = folder / "gps";
  std::filesystem::create_symlink("/dev/pts/99999", link);  // of a run that was killed
  const auto feeds = tap({"--nmea", "--tcp", std::to_string(port), "--pty", link});
  Reader client(connect_to(port));  // it is served after the terminal
  std::string sent;
  const auto send = [&](const std::string& body) {
    publish(sentences({nmea(body)}));
    EXPECT_TRUE(client.gets(nmea(body))) << feeds->err();
    return nmea(body);
  };
  send("GPTXT,nobody");
  auto reader = std::make_unique<Reader>(open_terminal(link));
  reader->write("$PUBX,00*33\r\n");  // not echoed
  std::string expected = send("GPTXT,first");
  EXPECT_TRUE(reader->gets(expected));
  EXPECT_EQ(reader->text(), expected);
  send("GPTXT,unread");
  reader.reset();
  send("GPTXT,nobody again");
  reader = std::make_unique<Reader>(open_terminal(link));
  expected = send("GPTXT,second");
  EXPECT_TRUE(reader->gets(expected));
  EXPECT_EQ(reader->text(), expected);
  for (int i = 0; i < 40; ++i) send("GPTXT,asleep " + std::to_string(i) + std::string(800, 'x'));
  expected = send("GPTXT,awake");
  EXPECT_TRUE(reader->gets(expected));
  EXPECT_THAT(reader->text(), AllOf(EndsWith(expected), Not(HasSubstr("asleep 0x"))));
  expect_end(*feeds, SIGINT);
  EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST_F(TapOutputsTest, TracksAreCompleteEvenAfterAKill) {
  const auto gpx = folder / "a.gpx", kml = folder / "a.kml", csv = folder / "a.csv";
  const Words exports = {"--export", "gpx", gpx, "--export", "kml", kml, "--export", "csv", csv};
  retain(fix_at(-60));
  auto writer = tap(exports);
  for (const auto& file : {gpx, kml}) {
    EXPECT_TRUE(
        eventually([&] { return std::filesystem::exists(file) && !text_of(file).empty(); }, PATIENCE_MS));
    expect_valid(file.substr(file.size() - 3), file);
  }
  GnssData full = fix_at(1);
  full.add_nmea(nmea("GNGGA,120001.00,4830.00012,N,01015.00012,E,1,12,0.98,545.4,M,46.9,M,,"));
  full.add_nmea(nmea("GNGSA,A,3,01,02,03,,,,,,,,,,1.90,0.98,1.60"));
  full.set_altitude(545.4F);
  full.set_speed(50.25F);
  full.set_heading(90.5F);
  full.set_quality(1);
  full.set_fix(3);
  full.set_num_satellites(12);
  full.set_accuracy(2.5F);
  full.set_hdop(0.98F);
  full.set_vdop(1.6F);
  publish(full);
  GnssData invalid = fix_at(2), undated = fix_at(2);
  invalid.set_status(2);
  undated.clear_utc_time_us();
  for (const auto& fix :
       {invalid, undated, fix_at(2, NAN), fix_at(2, 48, 181), fix_at(3, -90, 180), fix_at(2.5)})
    publish(fix);
  const std::string expected =
      "time_utc,latitude_deg,longitude_deg,altitude_m,speed_kmh,course_deg,fix,quality,satellites,accuracy_m,"
      "hdop,vdop,pdop,segment\r\n"
      "2026-03-23T12:00:01.000Z,48.5000020,10.2500020,545.4,50.25,90.50,3d,1,12,2.5,0.98,1.60,1.90,1\r\n"
      "2026-03-23T12:00:03.000Z,-90.0000000,-180.0000000,,,,,,,,,,,1\r\n"
      "2026-03-23T12:00:02.500Z,48.5000000,10.2500000,,,,,,,,,,,2\r\n";
  EXPECT_TRUE(eventually([&] { return text_of(csv) == expected; }, PATIENCE_MS)) << text_of(csv);
  EXPECT_TRUE(eventually([&] { return occurrences(text_of(kml), "<Point>") == 3; }, PATIENCE_MS));
  EXPECT_TRUE(eventually([&] { return occurrences(text_of(gpx), "<trkpt ") == 3; }, PATIENCE_MS));
  writer->signal(SIGKILL);
  EXPECT_EQ(writer->wait_for_exit(PATIENCE_MS), 128 + SIGKILL);
  expect_valid("gpx", gpx);
  expect_valid("kml", kml);
  EXPECT_EQ(occurrences(text_of(gpx), "<trkseg>"), 2);
  EXPECT_EQ(occurrences(text_of(kml), "<Folder>"), 2);
  for (const auto& file : {gpx, kml, csv}) {
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << file;
  }
  Process cautious(tool({"satnav-tap", "--export", "csv", csv}, broker));
  EXPECT_EQ(cautious.wait_for_exit(PATIENCE_MS), 1);
  EXPECT_EQ(cautious.err(), "satnav-tap: cannot write " + csv + ": File exists; --force replaces it\n");
  EXPECT_EQ(text_of(csv), expected);
  writer = tap({"--force", "--export", "gpx", gpx});
  publish(full);
  EXPECT_TRUE(eventually([&] { return occurrences(text_of(gpx), "<trkpt ") == 1; }, PATIENCE_MS));
  expect_end(*writer, SIGINT);
  expect_valid("gpx", gpx);
}

// The limit on a file's size stands for a full disk: the kernel writes up to it, then nothing more.
TEST_F(TapOutputsTest, AFullDiskEndsAnExportThatStaysComplete) {
  const struct {
    std::string format;
    std::string limit_kb;
  } rows[] = {{"csv", "4"}, {"gpx", "4"}, {"kml", "80"}};  // the last one has room for two lines of points
  for (const auto& [format, limit_kb] : rows) {
    const auto file = folder / "track." + format;
    const auto writer = tap({"--export", format, file},
                            {"bash", "-c", "ulimit -f " + limit_kb + "; exec \"$0\" \"$@\" > /dev/null"});
    double seconds = 0;
    EXPECT_TRUE(eventually(
        [&] {
          for (int i = 0; i < 10; ++i) publish(fix_at(++seconds));
          return !writer->running();
        },
        PATIENCE_MS));
    EXPECT_EQ(writer->wait_for_exit(PATIENCE_MS), 1);
    EXPECT_EQ(writer->err(), "satnav-tap: cannot write " + file + ": File too large\n");
    EXPECT_THAT(text_of(file), SizeIs(Gt(std::stoul(limit_kb) * 900)));
    if (format == "csv") {
      EXPECT_THAT(text_of(file), EndsWith(",1\r\n"));
    } else {
      expect_valid(format, file);
    }
  }
}
