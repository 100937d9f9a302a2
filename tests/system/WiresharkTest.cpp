#include <cmath>
#include <iomanip>

#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;
using nlohmann::json;

namespace {

/// Subscribes to every topic and keeps the bytes that the broker sends, in pieces of TCP segments.
class Recorder : Unique {
 public:
  explicit Recorder(const Broker& broker) : m_socket(connect_to(broker.port())) {
    using namespace std::string_literals;
    const std::string packets = "\x10\x10\0\4MQTT\4\2\0\x3C\0\4tape\x82\6\0\1\0\1#\0"s;
    EXPECT_EQ(write(m_socket, packets.data(), packets.size()), static_cast<ssize_t>(packets.size()));
    EXPECT_TRUE(
        eventually([&] { return occurrences(broker.log(), "Sending SUBACK to tape") > 0; }, PATIENCE_MS));
  }
  ~Recorder() { close(m_socket); }

  /// Returns everything up to a text in the last message, as text2pcap reads it: one line a segment.
  std::string dump(const std::string& last) {
    std::string all;
    std::ostringstream lines;
    const auto read_on = [&] {
      char segment[700];  // fixes are longer, so that they must be reassembled
      for (ssize_t count; (count = recv(m_socket, segment, sizeof segment, MSG_DONTWAIT)) > 0;) {
        all.append(segment, static_cast<size_t>(count));
        lines << "000000" << std::hex << std::setfill('0');
        for (ssize_t i = 0; i < count; ++i)
          lines << ' ' << std::setw(2) << int{static_cast<uint8_t>(segment[i])};
        lines << '\n';
      }
      return all.find(last) != std::string::npos;
    };
    EXPECT_TRUE(eventually(read_on, PATIENCE_MS));
    return lines.str();
  }

 private:
  const int m_socket;
};

/// A field of the dissector, and where satnav-tap has the same value.
struct Column {
  std::string field;
  std::string topic;  // empty: of every message
  std::string place;
};
const std::vector<Column> COLUMNS = {
    {"satnavd.envelope.timestamp_ns", "", "/envelope/timestamp_ns"},
    {"satnavd.envelope.body_length", "", "/envelope/body_length"},
    {"satnavd.gnssdata.status", "system/gnss/data", "/body/status"},
    {"satnavd.gnssdata.latitude", "system/gnss/data", "/body/latitude"},
    {"satnavd.gnssdata.utc_time_us", "system/gnss/data", "/body/utc_time_us"},
    {"satnavd.gnsshealth.reason", "system/gnss/health", "/body/reason"},
    {"satnavd.timezone.hour_offset", "system/time/timezone", "/body/hour_offset"},
    {"satnavd.timezone.minute_offset", "system/time/timezone", "/body/minute_offset"},
    {"satnavd.systemparameterentry.value", "system/sysparams", "/body/entries/0x0000A09B/value"},
    {"satnavd.vp1.longitude", "rt/j1939can/tx/vp1_local", "/group/signals/longitude/value"},
    {"satnavd.vds.altitude", "rt/j1939can/tx/vds_local", "/group/signals/altitude/value"},
    {"satnavd.p2c1.navmodegnss_base", "rt/oemcan/tx/p2c1_local", "/group/signals/navmodegnss_base/value"},
    {"satnavd.td.year", "rt/j1939can/tx/td_local", "/group/signals/year/value"},
    {"_ws.expert.message", "", "/error"},
};

/// Returns a number as both programs print it, anything else as it is.
std::string normalised(const std::string& text) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0') return text;
  std::ostringstream out;
  out << std::setprecision(20) << (number == std::floor(number) ? number : static_cast<float>(number));
  return out.str();
}

/// Returns the values of a column that satnav-tap has shown.
Words shown(const std::string& output, const Column& column) {
  Words values;
  std::istringstream input(output);
  for (std::string line; std::getline(input, line);) {
    const json message = json::parse(line);
    const json value = message.value(json::json_pointer(column.place), json());
    if (value.is_null() || (!column.topic.empty() && message["topic"] != column.topic)) continue;
    values.push_back(normalised(value.is_string() ? value.get<std::string>() : value.dump()));
  }
  return values;
}

/// Returns the values of each column that tshark finds in a capture.
std::vector<Words> dissected(const std::string& capture) {
  Words command{"tshark", "-r",     capture, "-X",          std::string("lua_script:") + DISSECTOR,
                "-T",     "fields", "-E",    "aggregator=|"};
  for (const auto& column : COLUMNS) command.insert(command.end(), {"-e", column.field});
  Process tshark(command);
  EXPECT_EQ(tshark.wait_for_exit(PATIENCE_MS), 0) << tshark.err();
  EXPECT_THAT(tshark.err(), Not(HasSubstr("Lua"))) << "an error of the script";
  std::vector<Words> columns(COLUMNS.size());
  std::istringstream packets(tshark.out());
  for (std::string packet; std::getline(packets, packet);) {
    std::istringstream cells(packet);
    std::string cell;
    for (auto& column : columns) {
      if (!std::getline(cells, cell, '\t')) break;
      std::istringstream values(cell);
      for (std::string value; std::getline(values, value, '|');) {
        if (value.find("missing the CONNECT packet") == std::string::npos)
          column.push_back(normalised(value));
      }
    }
  }
  return columns;
}

using WiresharkTest = test::SatnavdTest;

}  // namespace

TEST_F(WiresharkTest, ShowsARecordedSessionAsTheViewerDoes) {
  Tap tap(broker, "#");
  Recorder recorder(broker);
  const auto unit = start_unit({"--var", "hwversion=zpt", "--param", "0xA09B=04", "--timezone", "-03:30"});
  const auto simulator = receiver({"--rate", "4"});
  const auto service = satnavd("health_topic = system/gnss/health\n");
  const auto valid = [&] {
    return std::ranges::any_of(tap.fixes(), [](const json& message) {
      return message["topic"] == "rt/j1939can/tx/td_local" &&
             !message["group"]["signals"]["year"]["value"].is_null();
    });
  };
  ASSERT_TRUE(eventually(valid, PATIENCE_MS));
  const std::string time = "11 0000000000000000";
  for (const std::string& bad :
       {std::string("00"), "09 0000 1200 02000000" + time + "4003", "09 0100 1300 02000000" + time + "4003",
        "09 0100 1200 03000000" + time + "4003", "09 0100 1200 02000000" + time + "0D00"})
    unit->write_stdin("raw system/gnss/data " + bad + "\n");
  unit->write_stdin("timezone +05:45\nraw rt/j1939can/tx/vp1_local 09 0100 1200 04000000" + time +
                    "0A020102\n");
  expect_end(*service);
  unit->write_stdin("raw rt/system/end 00\n");
  ASSERT_TRUE(eventually([&] { return tap.fixes().back()["topic"] == "rt/system/end"; }, PATIENCE_MS));

  folder.write("session.hex", recorder.dump("rt/system/end"));
  Process converter({"text2pcap", "-T", "1883,50000", folder / "session.hex", folder / "session.pcap"});
  ASSERT_EQ(converter.wait_for_exit(PATIENCE_MS), 0) << converter.err();
  const auto found = dissected(folder / "session.pcap");
  for (size_t i = 0; i < COLUMNS.size(); ++i) {
    const Words expected = shown(tap.text(), COLUMNS[i]);
    EXPECT_THAT(expected, Not(IsEmpty())) << COLUMNS[i].field;
    EXPECT_EQ(found[i], expected) << COLUMNS[i].field;
  }
}
