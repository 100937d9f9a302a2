// The vehicle's buses between real units: what one sends another publishes, and a DBC reader that is not ours
// reads the frames as the service meant them.

#include <cmath>
#include <map>

#include "system/SatnavdTest.h"

namespace {

using test::PATIENCE_MS;
using test::Process;
using test::Tap;
using test::VALID;

class Buses : public test::SatnavdTest {};

using Values = std::map<std::string, std::vector<double>>;  // by "MESSAGE SIGNAL", oldest first

/// What the reader from the npm registry makes of a CAN log.
Values decodedElsewhere(const std::string& log) {
  Process reader({NODE, DBC_READER "/decode.js", SIGNAL_DATABASE, log});
  EXPECT_EQ(reader.wait_for_exit(PATIENCE_MS), 0) << reader.err();
  Values values;
  std::istringstream lines(reader.out());
  std::string message;
  std::string signal;
  for (double value = 0; lines >> message >> signal >> value;)
    values[message.append(" ").append(signal)].push_back(value);
  return values;
}

const std::tuple<const char*, const char*, double> SAME[] = {
    {"VP1 latitude", "latitude", 4e-6},  // a float's last place
    {"VP1 longitude", "longitude", 1e-6},
    {"VDS navigationbasedvehiclespeed", "speed", 1.0 / 256},
    {"VDS compassbearing", "heading", 1.0 / 128},
    {"VDS altitude", "altitude", 0.125},
    {"VP2 horizontaldilutionofprecision", "hdop", 0.1},
    {"P2C1 vehposprecisiongnss_base", "accuracy", 0.5},
    {"VP2 totalnumberofsatellitesinview", "num_satellites", 0}};

TEST_F(Buses, AnotherReaderOfTheDatabaseDecodesWhatWasSent) {
  publish_unit({"--var", "hwversion=zpt"});
  Tap tap(broker);
  Process log({test::program("satnav-tap"), "--port", std::to_string(broker.port()), "--topic", "none",
               "--can-log", folder / "can.log"});
  const auto simulator = receiver({"--rate", "4", "--utc", "2027-12-31T23:59:58Z"});
  const auto service = satnavd();
  ASSERT_TRUE(tap.gets(16, VALID));
  log.signal(SIGTERM);
  EXPECT_EQ(log.wait_for_exit(PATIENCE_MS), 0);

  const Values values = decodedElsewhere(folder / "can.log");
  const auto& seconds = values.at("TD seconds");  // the last group of a fix: the log may end before it
  ASSERT_GE(seconds.size(), 3U);
  const auto fixes = tap.fixes();
  size_t compared = 0;
  for (size_t i = 0; i < seconds.size(); ++i) {
    // The fix with this date and time; the first one is not trusted yet.
    const double second = seconds[i];
    const auto fix = std::find_if(fixes.begin(), fixes.end(), [&](const auto& each) {
      const int64_t utc_us = each["body"].value("utc_time_us", int64_t{0});
      return each["body"].value("status", 0) == VALID && utc_us % 60'000'000 == std::llround(second * 1e6);
    });
    if (fix == fixes.end()) continue;
    const auto& body = (*fix)["body"];
    for (const auto& [signal, field, tolerance] : SAME)
      EXPECT_NEAR(values.at(signal)[i], body[field].get<double>(), tolerance) << signal;
    EXPECT_EQ(values.at("P2C1 navmodegnss_base")[i], 2);
    EXPECT_EQ(values.at("TD year")[i], second < 30 ? 2028 : 2027);
    EXPECT_EQ(values.at("TD day")[i], second < 30 ? 1 : 31);
    ++compared;
  }
  EXPECT_GE(compared, 2U);
}

}  // namespace
