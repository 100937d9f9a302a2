// The vehicle's buses: the output with each fix, and a unit without a receiver that gets fixes from CAN.

#include <gmock/gmock.h>

#include <map>
#include <thread>

#include "platform/com/Topics.h"
#include "scenario/World.h"

namespace {

using namespace ecu::koru;
using namespace test;
using namespace testing;

const World::Options WITH_BUSES{.hwversion = "zpt", .hardware_init = false};
const World::Options WITHOUT_RECEIVER{.hasgnss = "false"};

/// Returns the output: the ms of each position, "-" if it has no fix, "/n" if it has n sentences instead of 4
/// (or 0 without a fix), "*" if the groups follow at once and in order.
std::string busTraffic(const World& world) {
  const std::map<std::string, std::string> names{
      {topic::VP1_TX, " VP1"},        {topic::P2C1_TX, " P2C1"}, {topic::VP2_TX, " VP2"},
      {topic::VDS_TX, " VDS"},        {topic::TD_TX, " TD"},     {topic::GNSS_TIMESTAMP, " stamp"},
      {topic::MODULE_ERROR, " error"}};
  const std::string groups = " VP1 P2C1 VP2 VDS TD stamp error";
  std::string traffic;
  int64_t position_ns = 0;
  std::string module_error;
  for (const auto& record : world.bus->records()) {
    if (record.topic == topic::MODULE_ERROR && bodyOf(record.message).value() != module_error)
      traffic += " wrong";
    if (const auto name = names.find(record.topic); name != names.end())
      traffic += name->second + (record.steady_ns == position_ns ? "" : " late");
    if (traffic.ends_with(groups)) traffic.replace(traffic.size() - groups.size(), groups.size(), "*");
    if (record.topic != topic::GNSS_DATA) continue;
    position_ns = record.steady_ns;
    const auto data = bodyOf<pb::GnssData>(record.message);
    const bool fix = data.status() == 3;
    module_error = std::string(1, data.status() == 1 ? '\1' : '\0');
    traffic += (traffic.empty() ? "" : " ") +
               std::to_string((position_ns - 1'000'000'000'000 + 999'999) / 1'000'000);
    if (!fix) traffic += '-';
    if (data.nmea_size() != (fix ? 4 : 0)) traffic += "/" + std::to_string(data.nmea_size());
  }
  return traffic;
}

std::string fix(int second, int hundredths = 0) {
  return epoch(second, "RMC GGA GSA GST", hundredths);
}

/// The receiver's bursts, each with its arrival in ms. "!1.2": the service gets no processor time for 1.2 s.
using Bursts = std::vector<std::pair<int64_t, std::string>>;

/// Returns `fixes` at `hz`, the first of second 1, without that of index `lost`.
Bursts atRate(int hz, int fixes, int lost = -1) {
  Bursts bursts;
  for (int i = 0; i < fixes; ++i) {
    if (i != lost) bursts.emplace_back(300 + 1000 / hz * i, fix(1 + i / hz, i % hz * (100 / hz)));
  }
  return bursts;
}

Bursts repeated(const std::string& burst, int64_t every_ms) {
  Bursts bursts;
  for (int i = 0; i < 4; ++i) bursts.emplace_back(300 + every_ms * i, burst);
  return bursts;
}

/// Returns `count` sentences that are not part of a fix.
std::string texts(int count) {
  std::string bytes;
  for (int i = 0; i < count; ++i) bytes += nmea("GPTXT,~");
  return bytes;
}

TEST(Buses, EachSecondGoesOutOnceAndTheBusIsNeverSilentForLong) {
  const std::string no_date = "GGA GSA GSA GST", no_gst = "RMC GGA GSA";
  Bursts stray_sync = atRate(1, 6);
  stray_sync.emplace_back(400, "\xB5");
  const std::string bad_satellites = "GNGGA,123501.00,4807.0,N,01131.0,E,1,";
  const struct {
    const char* what;
    Bursts bursts;  ///< "x" only wakes the service
    const char* expected;
  } cases[] = {
      {"1 Hz", atRate(1, 3), "300* 1300* 2300*"},
      {"4 Hz", atRate(4, 9), "300* 550 800 1050 1300* 1550 1800 2050 2300*"},
      {"10 Hz", atRate(10, 12), "300* 400 500 600 700 800 900 1000 1100 1200 1300* 1400"},
      {"4 Hz, first fix of a second lost", atRate(4, 9, 4), "300* 550 800 1050 1550* 1800 2050 2300*"},
      {"two epochs at once", {{300, fix(1) + fix(2)}}, "300* 300*"},
      // A fix is lost 1.3 s after the last one, then every 1.0 s. The service checks that every 0.1 s.
      {"missed epoch", {{300, fix(1)}, {1600, "x"}, {1601, "x"}, {2300, fix(3)}}, "300* 1601-* 2300*"},
      {"the same second after a loss", {{300, fix(1)}, {1601, "x"}, {1800, fix(1)}}, "300* 1601-* 1800"},
      {"10 Hz ends in mid-second", atRate(10, 6), "300* 400 500 600 700 800 2101-* 3101-*"},
      {"no epoch at all", {{1000, "x"}, {1001, "x"}, {2001, "x"}, {2002, "x"}}, "1001-* 2001-*"},
      {"second 0 after a frame without one", {{1001, "x"}, {1200, fix(0)}}, "1001-* 1200*"},
      // A fix that does not begin a new second leaves when 0.95 s have passed.
      {"the clock stands, 0.50 s", repeated(fix(1), 500), "300* 800 1300* 1800"},
      {"the clock stands, 0.99 s", repeated(fix(1), 990), "300* 1290* 2280* 3270*"},
      {"the clock stands, 1.20 s", repeated(fix(1), 1200), "300* 1500* 2700* 3900*"},
      {"undated, 1 Hz", repeated(epoch(1, no_date), 1000), "300-/4 1300-/4* 2300-/4* 3300-/4*"},
      {"a second after a stall, too early",
       {{300, fix(1)}, {1250, fix(1)}, {2300, fix(3)}},
       "300* 1250 2300*"},
      {"a second after a stall", {{300, fix(1)}, {1251, fix(1)}, {2300, fix(3)}}, "300* 1251* 2300*"},
      // An epoch without a GST ends 1.3 s after the previous frame, but not in its own first 0.3 s. It also
      // ends with the next GST, or with the next RMC after 0.95 s if it has three sentences.
      {"GST lost", {{300, fix(1)}, {1200, epoch(2, no_gst)}, {1600, "x"}, {1601, "x"}}, "300* 1601/3*"},
      {"GST lost, late epoch",
       {{300, fix(1)}, {1400, epoch(2, no_gst)}, {1700, "x"}, {1701, "x"}},
       "300* 1701/3*"},
      {"GST lost at 4 Hz",
       {{300, fix(1)}, {550, fix(1, 25)}, {800, epoch(1, no_gst, 50)}, {1601, "x"}},
       "300* 550 1601/3*"},
      {"GST and RMC lost",
       {{300, fix(1)},
        {1050, epoch(1, "RMC GGA GSA GSA", 75)},
        {1303, epoch(2, "GGA GSA GST")},
        {1550, fix(2)}},
       "300* 1303/7* 1550*"},
      {"RMC lost",
       {{300, fix(1)}, {550, epoch(1, no_date, 25)}, {800, fix(1)}, {1300, fix(2)}},
       "300* 550-/4 800 1300*"},
      {"never a GST",
       {{300, epoch(1, no_gst)}, {1300, epoch(2, no_gst)}, {2300, epoch(3, no_gst)}},
       "1300/3* 2300/3*"},
      {"next RMC too early", {{300, fix(1)}, {400, epoch(2, no_gst)}, {1250, fix(3)}}, "300* 1250/7*"},
      {"next RMC", {{300, fix(1)}, {400, epoch(2, no_gst)}, {1251, fix(3)}}, "300* 1251/3* 1251*"},
      {"next RMC after two", {{300, fix(1)}, {400, epoch(2, "RMC GGA")}, {1251, fix(3)}}, "300* 1251/6*"},
      {"three sentences with a GST", {{300, epoch(1, "RMC GGA GST")}, {1300, fix(2)}}, "1300/3* 1300*"},
      {"no processor time in mid-epoch",
       {{300, fix(1)}, {1290, epoch(2, "RMC")}, {1291, "!1.298"}, {1292, epoch(2, "GGA GSA GST")}},
       "300* 2589*"},
      {"none for too long",
       {{300, fix(1)}, {1290, epoch(2, "RMC")}, {1291, "!1.300"}, {1292, epoch(2, "GGA GSA GST")}},
       "300* 2591/2*"},
      // Bad bytes cost only their sentence. More than 100 sentences are not an epoch.
      {"bad sentences",
       {{300, epoch(1, "RMC") + nmea(bad_satellites + "x,0.9,545.4,M,46.9,M,,") +
                  nmea(bad_satellites + std::string(20, '9') + ",0.9,5.4,M,46.9,M,,") +
                  "$GNGGA,123501.00*00\r\n" + nmea("GPTXT,\x7F") + nmea("GPTXT,1\x7F") +
                  epoch(1, "GSA GSA GST")}},
       "300*"},
      {"a tilde", {{300, epoch(1, no_gst) + nmea("GPTXT,~") + nmea("GPTXT,1~") + epoch(1, "GST")}}, "300/6*"},
      {"101 sentences", {{300, epoch(1, "RMC") + texts(99) + epoch(1, "GST")}}, "300/101*"},
      {"stray sync byte", stray_sync, "300* 1601-* 2601-* 3601-* 4300* 5300*"},
      {"102 sentences", {{300, epoch(1, "RMC") + texts(100) + epoch(1, "GST")}, {1300, fix(2)}}, "1300*"},
  };
  for (const auto& tested : cases) {
    Script script;
    World world(script, WITH_BUSES);
    for (const auto& [at_ms, bytes] : tested.bursts) {
      if (bytes[0] != '!')
        script.add(at_ms * MS, bytes);
      else
        world.at(static_cast<double>(at_ms) / 1e3,
                 [&, ns = std::stod(bytes.substr(1)) * 1e9] { world.time.sleep_ns(std::llround(ns)); });
    }
    const std::string expected = tested.expected;
    world.run(std::stod(expected.substr(expected.rfind(' ') + 1)) / 1e3 + 0.2);
    EXPECT_EQ(busTraffic(world), expected) << tested.what;
  }
}

void peerDate(World& world, double at_s, double second) {
  world.injectAt(at_s, topic::TD_RX,
                 std::string(1, static_cast<char>(second * 4)) + "\x23\x0C\x03\x5C\x29\xFF\xFF");
}

/// Injects another unit's fix at 48.1233 N 11.5249 E, 41.5 km/h, at 12:35:SS on 23 March 2026.
void peerFix(World& world, double at_s, double second) {
  world.injectAt(at_s, topic::VP1_RX, "\x28\x7C\xDA\x99\x18\x06\x0A\x84");
  world.injectAt(at_s, topic::P2C1_RX, "\x02\x01\xFF\x4B\x5F\x06\xFF\xFF");
  world.injectAt(at_s, topic::VP2_RX, "\x09\x0C\x0F\x13\xFF\xFF\xFF\xFF");
  world.injectAt(at_s, topic::VDS_RX, std::string("\x00\x2A\x80\x29\xFF\xFF\x4B\x5F", 8));
  peerDate(world, at_s, second);
}

/// A unit's messages depend on its hardware and on its own receiver, which only "true" means.
TEST(Buses, EachUnitTellsWhatItHas) {
  const struct {
    std::string hwversion, hasgnss;
    std::string sends;  ///< a(nnouncement) g(roups) t(ime for the unit), of a r(eceiver)
  } rows[] = {{"zpt", "true", "agr"}, {"qrx", "true", "tr"}, {"n2", "true", "r"}, {"ZPT", "true", "r"},
              {"zpt", "false", "a"},  {"qrx", "false", ""},  {"qrx", "TRUE", ""}, {"qrx", "1", ""}};
  for (const auto& row : rows) {
    Script script;
    for (int s = 1; s <= 2; ++s) script.add(s * S + 300 * MS, epoch(s));
    World world(
        script,
        {.hasgnss = row.hasgnss, .hwversion = row.hwversion, .connected = false, .hardware_init = false});
    peerFix(world, 2.4, 2);
    world.at(2, [&] { world.bus->set_connected(true); });
    const auto published = world.run(2.5);
    ASSERT_FALSE(published.empty());
    std::string sends;
    for (const auto& record : world.bus->records()) {
      if (record.topic != topic::GNSS_SOURCE) continue;
      EXPECT_EQ(bodyOf<pb::GnssSource>(record.message).source(), pb::GnssSource::LOCAL_RECEIVER);
      EXPECT_EQ(record.steady_ns, 1'002'000'000'000);
      sends += 'a';
    }
    if (!world.sentOn(topic::VP1_TX).empty()) sends += 'g';
    if (!world.sentOn(topic::SYSTIME_TD).empty()) sends += 't';
    if (!world.terminal.opens_us.empty()) sends += 'r';
    EXPECT_EQ(sends, row.sends) << row.hwversion << row.hasgnss;
    const bool has_receiver = row.sends.ends_with('r');
    EXPECT_EQ(published.back().data.nmea_size(), has_receiver ? 5 : 0);
    EXPECT_GT(published.back().data.timestamp_ns(), 1'002'000'000'000U);
    EXPECT_EQ(published.size(), has_receiver ? 1U : 2U) << "what the broker has missed is not sent later";
  }
}

/// The offsets are in bytes 6 (minutes) and 7 (hours) of the time and date, summer time in byte 2 of P2C1.
TEST(Buses, TimeZoneGoesOutWithTheNextFix) {
  using Zone = pb::TimeZone;
  const struct {
    int hours, minutes;
    bool summer;
    Zone::Source source;
    std::string offsets, summer_byte;
  } rows[] = {{1, 0, true, Zone::NONE, "FF FF", "03"},     {5, 30, true, Zone::SYSTEM, "9B 82", "01"},
              {-3, -30, false, Zone::USER, "5F 7A", "00"}, {0, 0, false, Zone::SYSTEM, "7D 7D", "00"},
              {14, 45, true, Zone::USER, "AA 8B", "01"},   {1, 0, false, Zone::NONE, "FF FF", "03"}};
  for (const auto* hwversion : {"zpt", "qrx"}) {
    const bool on_can = hwversion == std::string("zpt");
    Script script;
    script.add(300 * MS, epoch(0));  // this fix is not trusted yet
    World world(script, {.hwversion = hwversion, .hardware_init = false});
    for (int s = 0; const auto& row : rows) {
      ++s;
      script.add(s * S, epoch(s));
      pb::TimeZone zone;
      zone.set_hour_offset(row.hours);
      zone.set_minute_offset(row.minutes);
      zone.set_summer_time(row.summer);
      zone.set_source(row.source);
      world.at(s - 0.5, [&world, zone] {
        auto message = enveloped(zone);
        world.bus->inject(topic::TIME_ZONE, message);
        message.payload.pop_back();  // a broken message changes nothing
        world.bus->inject(topic::TIME_ZONE, message);
      });
    }
    world.run(static_cast<double>(std::size(rows)) + 0.5);
    const auto dates = world.sentOn(on_can ? topic::TD_TX : topic::SYSTIME_TD);
    const auto p2c1 = world.sentOn(topic::P2C1_TX);
    ASSERT_EQ(dates.size(), std::size(rows) + 1);
    for (size_t i = 1; const auto& row : rows) {
      EXPECT_EQ(dates[i].substr(1), bytes("23 0C 03 5C 29 " + row.offsets));
      if (on_can) {
        EXPECT_EQ(p2c1.at(i).substr(2, 1), bytes(row.summer_byte));
      }
      ++i;
    }
  }
}

TEST(CanInput, TimeDateFramesSetThePaceAndSilenceIsNoFix) {
  Script nothing;
  World world(nothing, WITHOUT_RECEIVER);
  peerFix(world, 2.5, 1.25);
  peerFix(world, 3.5, 2);
  const auto published = world.run(7.5);
  EXPECT_EQ(cadence(published), "2000:1/0 2500:3/0 3500:3/0 5200:2/0 6199:2/0 7198:2/0");
  const pb::GnssData& fix = published.at(1).data;
  EXPECT_THAT((std::vector{fix.latitude(), fix.longitude(), fix.speed(), fix.heading(), fix.altitude(),
                           fix.hdop(), fix.vdop(), fix.accuracy()}),
              Pointwise(FloatEq(), {48.123268F, 11.524943F, 41.5F, 84.0F, 549.375F, 1.2F, 1.5F, 3.0F}));
  EXPECT_EQ(fix.num_satellites(), 9);
  EXPECT_EQ(fix.fix(), 3U);
  EXPECT_EQ(fix.quality(), 1);
  EXPECT_EQ(fix.utc_time_us(), 1'774'269'301'250'000U);
  EXPECT_EQ(fix.timestamp_ns(), 1'002'500'000'000U);
  for (const size_t undated : {3U, 4U}) {
    EXPECT_FALSE(published.at(undated).data.has_utc_time_us());
    EXPECT_EQ(published.at(undated).data.timestamp_ns(), 0U);
  }
  EXPECT_EQ(world.sentOn(topic::MODULE_ERROR).size(), published.size());
  EXPECT_THAT(world.terminal.opens_us, IsEmpty());
  EXPECT_THAT(world.bus->unsubscribed(),
              IsSupersetOf({topic::VP1_RX, topic::VP2_RX, topic::VDS_RX, topic::TD_RX, topic::P2C1_RX}));
}

TEST(CanInput, BadGroupCostsItsOwnFields) {
  const struct {
    std::string topic, bytes;
    std::string kept;  // p(osition) s(peed) a(ltitude) n(umber of satellites) m(ode) q(uality) d(ate)
  } cases[] = {
      {topic::VP1_RX, "\x28\x7C\xDA\x99\x18\x06\x0A\x84", "psanmqd"},
      {topic::VP1_RX, "\x28\x7C\xDA\xFE\x18\x06\x0A\x84", "sanmqd"},  // latitude in error
      {topic::VP1_RX, "\x28\x7C\xDA\x99\xFF\xFF\xFF\xFF", "sanmqd"},  // no longitude
      {topic::VP1_RX, "\x28\x7C\xDA\x99\x18\x06\x0A", "sanmqd"},      // short
      // The speed is out of range, then not available.
      {topic::VDS_RX, std::string("\x00\x2A\x00\xFB\xFF\xFF\x4B\x5F", 8), "pnmqd"},
      {topic::VDS_RX, std::string("\x00\x2A\xFF\xFF\xFF\xFF\x4B\x5F", 8), "panmqd"},
      {topic::VP2_RX, "\xFF\x0C\x0F\x13\xFF\xFF\xFF\xFF", "psamqd"},  // no satellites
      // A fix without a navigation mode has no date.
      {topic::P2C1_RX, "\xFE\x01\xFF\x4B\x5F\x06\xFF\xFF", "psn"},
      {topic::P2C1_RX, "\x02\xFF\xFF\x4B\x5F\x06\xFF\xFF", "psanmd"},
      {topic::TD_RX, "\x04\x23\xFF\x03\x5C\x29\xFF\xFF", "psanmq"},   // no hours
      {topic::TD_RX, "\x04\x23\x0C\x0D\x5C\x29\xFF\xFF", "psanmq"},   // month 13
      {topic::TD_RX, "\x04\x23\x0C\x06\x7C\x29\xFF\xFF", "psanmq"},   // 31 June 2026
      {topic::TD_RX, "\x04\x23\x0C\x02\x78\x2B\xFF\xFF", "psanmq"},   // 30 February 2028
      {topic::TD_RX, "\x04\x23\x0C\x02\x74\x73\xFF\xFF", "psanmq"},   // 29 February 2100
      {topic::TD_RX, "\x04\x23\x0C\x02\x74\x2B\xFF\xFF", "psanmqd"},  // 29 February 2028
  };
  for (const auto& tested : cases) {
    Script nothing;
    World world(nothing, WITHOUT_RECEIVER);
    peerFix(world, 0.5, 1);
    world.injectAt(1.4, tested.topic, tested.bytes);
    if (tested.topic != topic::TD_RX) peerDate(world, 1.5, 2);
    const auto published = world.run(1.6);
    ASSERT_EQ(published.size(), 2U) << tested.kept;
    const pb::GnssData& data = published.back().data;
    std::string kept;
    if (data.has_latitude()) kept += 'p';
    if (data.has_speed()) kept += 's';
    if (data.has_altitude()) kept += 'a';
    if (data.has_num_satellites()) kept += 'n';
    if (data.has_fix()) kept += 'm';
    if (data.has_quality()) kept += 'q';
    if (data.has_utc_time_us()) kept += 'd';
    EXPECT_EQ(kept, tested.kept);
    EXPECT_EQ(data.has_longitude(), data.has_latitude());
  }
}

TEST(CanInput, NothingFromBeforeIsANewFix) {
  Script nothing;
  World world(nothing, WITHOUT_RECEIVER);
  peerFix(world, 0.5, 1);
  // Nobody knows when a retained message was sent.
  world.at(0.6, [&] {
    com::Message kept = envelopedSignal(std::string("\x08\x23\x0C\x03\x5C\x29\xFF\xFF"));
    kept.retained = true;
    world.bus->inject(topic::TD_RX, kept);
  });
  world.service->enableMqttSystemSelection();
  world.injectAt(1, topic::PARAMETER_GNSS_ON, std::string(1, '\0'));
  peerFix(world, 2, 3);  // while GNSS is switched off
  world.injectAt(3, topic::PARAMETER_GNSS_ON, std::string(1, '\1'));
  const auto published = world.run(9);
  EXPECT_EQ(cadence(published), "500:3/0 5000:1/0 5999:1/0 6998:1/0 7997:1/0 8996:1/0");
  EXPECT_FALSE(published.at(1).data.has_latitude());
}

TEST(CanInput, DateThatCameAsTheBrokerWentIsNotUsedAfterwards) {
  Script nothing;
  World world(nothing, WITHOUT_RECEIVER);
  world.at(0.9, [&] { world.bus->set_connected(false); });
  peerFix(world, 1, 1);
  world.at(1.5, [&] { world.bus->set_connected(true); });
  EXPECT_EQ(cadence(world.run(4)), "2700:2/0 3699:2/0");
}

/// Uses real threads: one sends frames, another runs the service. Each frame is of the next second.
TEST(CanInput, FastFramesArePublishedWithTheirDateTheLastOneAlways) {
  constexpr uint64_t MIDNIGHT_US = 1'774'224'000'000'000;  // 23 March 2026
  constexpr int64_t SHORTEST_TIME_OUT_US = 900 * MS;
  Script nothing;
  World world(nothing, {.hasgnss = "false", .real_time = true});
  uint64_t second = 0;
  const auto inject_next = [&] {
    ++second;
    const char time[] = {static_cast<char>(second % 60 * 4), static_cast<char>(second / 60 % 60),
                         static_cast<char>(second / 3600)};
    world.inject(topic::TD_RX, std::string(time, sizeof time) + "\x03\x5C\x29\xFF\xFF");
  };
  const auto is_last_published = [&] {
    const auto published = world.published();
    return !published.empty() && published.back().data.utc_time_us() == MIDNIGHT_US + second * S;
  };
  std::thread service([&] { world.service->run(); });
  EXPECT_TRUE(eventually(
      [&] {
        world.inject(topic::P2C1_RX, "\x02\x01\xFF\x4B\x5F\x06\xFF\xFF");
        inject_next();
        return is_last_published();
      },
      10'000));
  int64_t previous_us = world.published().back().at_us;
  for (const int frames : {1000, 20'000}) {
    world.bus->clear_records();
    for (int i = 0; i < frames; ++i) inject_next();
    EXPECT_TRUE(eventually(is_last_published, 10'000)) << frames << " frames";
    for (const auto& [at_us, data] : world.published()) {
      if (!data.has_utc_time_us()) {
        EXPECT_GT(at_us - previous_us, SHORTEST_TIME_OUT_US) << frames << " frames";
      }
      previous_us = at_us;
    }
  }
  world.service->stop();
  service.join();
}

}  // namespace
