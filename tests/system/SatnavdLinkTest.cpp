#include "support/Frames.h"
#include "system/SatnavdTest.h"

using namespace test;
using namespace testing;

namespace {

using SatnavdLinkTest = test::SatnavdTest;

/// Returns position and sentences of each valid fix, as text.
std::vector<std::string> positions(Tap& tap) {
  std::vector<std::string> all;
  for (const auto& fix : tap.fixes()) {
    const auto& body = fix["body"];
    if (body.value("status", 0) == VALID)
      all.push_back(body["latitude"].dump() + body["longitude"].dump() + body["nmea"].dump());
  }
  return all;
}

}  // namespace

TEST_F(SatnavdLinkTest, ARecordingPlaysTheSameFixesAndTheSameCommands) {
  publish_unit();
  const auto path = folder / "link.pcap";
  std::vector<std::string> driven;
  {
    const auto simulator = receiver({});
    Tap tap(broker);
    const auto service = satnavd("disable_hw_init = false\nrecord_link = " + path + "\n");
    ASSERT_TRUE(tap.gets(4, VALID)) << service->err();
    expect_end(*service);
    driven = positions(tap);
  }

  Process tshark({"tshark", "-r", path, "-T", "fields", "-e", "frame.protocols", "-e", "_ws.col.Info"});
  const auto status = tshark.wait_for_exit(PATIENCE_MS);
  if (status != 127) {  // it is installed
    EXPECT_EQ(status, 0) << tshark.err();
    for (const auto* event : {"STATUS_CHANGE", "DATA_RX_START", "DATA_TX_START"})
      EXPECT_THAT(tshark.out(), HasSubstr(event));
  }

  const auto simulator = receiver({"--replay", path});
  Tap tap(broker);
  const auto service = satnavd("disable_hw_init = false\n");
  ASSERT_EQ(simulator->wait_for_exit(PATIENCE_MS), 0);
  EXPECT_THAT(simulator->err(), ContainsRegex("the host sent [1-9][0-9]* frames, 0 differences"));
  expect_end(*service);
  EXPECT_EQ(positions(tap), driven);
}

TEST_F(SatnavdLinkTest, APlaybackSaysHowTheHostDiffers) {
  publish_unit();
  // of the file and of each event: the header, then time, both lengths, time, kind
  const auto file = bytes(
                        "4D3CB2A1 0200 0400 00000000 00000000 FFFF0000 FA000000"
                        "00000000 00000000 15000000 15000000 00000000 00000000 00 000000") +
                    "open 9600" + bytes("00000000 00000000 11000000 11000000 00000000 00000000 01 000000") +
                    "hello" + bytes("00000000 00000000 14000000 14000000 00000000 00000000 02 000000") +
                    "$GNRMC\r\n" + bytes("00000000 00000000 14000000");
  const auto simulator = receiver({"--replay", folder.write("link.pcap", file)});
  const auto service = satnavd("baud_rate = 38400\nrecord_link = /dev/full\n");
  ASSERT_EQ(simulator->wait_for_exit(PATIENCE_MS), 0);
  EXPECT_THAT(
      simulator->err(),
      AllOf(HasSubstr(
                "link.pcap: truncated dump file; tried to read 16 header bytes, only got 12; it is played"),
            HasSubstr("the host's rate is 38400 bit/s, in the recording it was 9600 bit/s\n"),
            HasSubstr("the host sent 0 frames, 5 differences from the recording\n"),
            HasSubstr("the first one is at byte 0: expected 68, found nothing\n")));
  expect_end(*service);
  EXPECT_EQ(occurrences(service->err(), "link is not recorded in /dev/full: No space left on device;"), 1U)
      << service->err();
}
