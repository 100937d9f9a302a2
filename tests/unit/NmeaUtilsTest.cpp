#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

#include "nmea/NmeaFields.h"
#include "support/Frames.h"
#include "wire/HexDump.h"
#include "wire/NmeaLine.h"
#include "wire/UbxFrame.h"

using namespace ecu::koru::gpspub;
using namespace std::string_literals;

namespace {

const unsigned char* bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

bool valid(const std::string& line) {
  return GnssUtils::isValidNmeaMessage(bytes(line), static_cast<unsigned>(line.size()));
}

bool checked(const std::string& frame) {
  return GnssUtils::isUbloxChecksumCorrect(bytes(frame), static_cast<unsigned>(frame.size()));
}

std::string flipped(std::string text, size_t bit) {
  text[bit / 8] = static_cast<char>(text[bit / 8] ^ 1 << bit % 8);
  return text;
}

}  // namespace

TEST(NmeaUtilsTest, ChecksumsOfKnownItemsAndEverySingleCorruptedBit) {
  const std::string rmc = "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6";
  for (const auto& line : {rmc + "A\r\n", rmc + "A\r\0"s, "$AB*03\r\n"s}) EXPECT_TRUE(valid(line)) << line;
  for (const auto* tail : {"a\r\n", "B\r\n", "A", ""}) EXPECT_FALSE(valid(rmc + tail)) << tail;
  for (const auto* line : {"$", "", "!AB*03\r\n", "$AB003\r\n", "$A*41\r\n"})
    EXPECT_FALSE(valid(line)) << line;
  EXPECT_TRUE(checked("\xB5\x62\x05\x01\x02\x00\x06\x01\x0F\x38"s));
  std::string poll = "\xB5\x62\x06\x08\x00\x00??"s;
  EXPECT_TRUE(GnssUtils::fixUbloxChecksum(poll));
  EXPECT_EQ(poll, "\xB5\x62\x06\x08\x00\x00\x0E\x30"s);
  std::string too_short = "\xB5\x62\x06\x08\x00??"s;
  EXPECT_FALSE(GnssUtils::fixUbloxChecksum(too_short));
  EXPECT_EQ(too_short, "\xB5\x62\x06\x08\x00??"s);

  const std::string line = test::nmea("GNRMC,235959.50,A,4807.038,N,01131.000,E,022.4,,310399,,,A");
  const std::string frame = test::ubx(1, 7, "\x00\xFF\x80payload\n\r$"s);
  ASSERT_TRUE(valid(line));
  ASSERT_TRUE(checked(frame));
  EXPECT_FALSE(checked("\xB5"));
  for (size_t bit = 0; bit < (line.size() - 2) * 8; ++bit) EXPECT_FALSE(valid(flipped(line, bit))) << bit;
  for (size_t bit = 16; bit < frame.size() * 8; ++bit) EXPECT_FALSE(checked(flipped(frame, bit))) << bit;
}

// The fast path for plain decimals must return exactly the bits of strtod.
TEST(NmeaUtilsTest, NumbersAreThoseOfStrtod) {
  const auto bits = [](double value) { return std::isnan(value) ? 1 : std::bit_cast<uint64_t>(value); };
  std::mt19937 random(1);
  const std::string_view alphabets[] = {"0123456789.", "01.", "0123456789.+-eE xXpinfaN"};
  for (int round = 0; round < 300'000; ++round) {
    const std::string_view alphabet = alphabets[random() % 3];
    std::string text(random() % 22, '0');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    const double expected = std::strtod(text.c_str(), nullptr);
    const double number = nmeaNumber(text);
    ASSERT_EQ(bits(number), bits(expected)) << '"' << text << "\" " << number << ' ' << expected;
  }
}

TEST(NmeaUtilsTest, HexDumpsHaveGroupsAndLines) {
  const std::string text = "\x01\xAB\x7F\x10\xC0";
  const auto* data = bytes(text);
  EXPECT_EQ(hexDumpMessage(data, 5, 4, 2, true), "01 AB   7F 10   \nC0 ");
  EXPECT_EQ(hexDumpMessage(data, 5, 0, 0, false), "01AB7F10C0");
}
