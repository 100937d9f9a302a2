#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/gnss/Receiver.h"
#include "support/Frames.h"

namespace ecu::koru::sim {
namespace {

using testing::ElementsAre;
using testing::StartsWith;
using Texts = std::vector<std::string>;

std::string digits_of(const std::string& bytes) {
  std::string digits;
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    digits += {"0123456789ABCDEF"[byte >> 4U], "0123456789ABCDEF"[byte & 15U]};
  }
  return digits;
}

/// "0600 01 00": class, id and payload in hexadecimal, blanks anywhere.
std::string frame_of(const std::string& digits) {
  const std::string bytes = test::bytes(digits);
  return test::ubx(static_cast<uint8_t>(bytes[0]), static_cast<uint8_t>(bytes[1]), bytes.substr(2));
}

/// The host's end of a receiver that says nothing by itself, so that answers stand alone.
struct Host {
  explicit Host(const std::string& faults = "silence=99.9@100") : receiver(silent(faults)) {}
  static ReceiverOptions silent(const std::string& faults) {
    ReceiverOptions options;
    options.faults = parse_faults(faults);
    options.faults.silence_s = 99.9;
    options.faults.silence_every_s = 100;
    options.utc_start_us += 100'000;
    return options;
  }

  /// The class, id and payload of each message that comes within half a second.
  Texts ask(const std::string& digits) {
    const std::string frame = frame_of(digits);
    receiver.write({reinterpret_cast<const uint8_t*>(frame.data()), frame.size()});
    receiver.advance_to(now_us += 500'000);
    std::string bytes(receiver.available(), '\0');
    receiver.read({reinterpret_cast<uint8_t*>(bytes.data()), bytes.size()});
    Texts frames;
    while (bytes.size() >= 8) {
      const size_t size = 8U + static_cast<uint8_t>(bytes[4]) + 256U * static_cast<uint8_t>(bytes[5]);
      frames.push_back(digits_of(bytes.substr(2, 2) + bytes.substr(6, size - 8)));
      EXPECT_EQ(digits_of(bytes.substr(0, size)), digits_of(frame_of(frames.back())));
      bytes.erase(0, size);
    }
    EXPECT_EQ(bytes, "");
    return frames;
  }

  Receiver receiver;
  int64_t now_us = 0;
};

const std::string NAV5 = "0624FFFF000300000000102700000500FA00FA0064005E01003C000000000000000000000000";
const std::string GNSS = "063E00202007";

TEST(SimUbx, AnswersPollsByteByByte) {
  const struct {
    const char* poll;
    Texts answers;
  } cases[] = {
      {"0600", {"060001000000D0080000009600000700030000000000", "05010600"}},
      {"060002", {"05000600"}},  // no UART 2
      {"0601F005", {"0601F005000000000000", "05010601"}},
      {"0608", {"0608E80301000100", "05010608"}},
      {"0613", {"06131B00F0B9", "05010613"}},
      {"0617", {"06170040000200000000000000010000000000000000", "05010617"}},
      {"0624", {NAV5, "05010624"}},
      {"063E",
       {GNSS + "000810000100010101010300010001010204080000000101030810000000010104000800000001030500030001000"
               "10506080E0001000101",
        "0501063E"}},
      {"0A28", {"0A28010F030303000000"}},
      {"0699", {"05000699"}},  // no such message
      {"0107", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(Host().ask(c.poll), c.answers) << c.poll;

  Host host;
  EXPECT_THAT(host.ask("0A04"), ElementsAre(testing::AllOf(StartsWith("0A04" + digits_of("ROM CORE 3.01")),
                                                           testing::SizeIs(2 * (2 + 40 + 4 * 30)))));
  EXPECT_THAT(host.ask("0A09"), ElementsAre(testing::SizeIs(2 * (2 + 60))));
}

TEST(SimUbx, KeepsWhatIsPossibleAndRefusesTheRest) {
  const std::string auto_nav5 = "062401000400" + NAV5.substr(12);  // dynamic model alone
  const struct {
    std::string set, kept;  // kept: what a poll tells afterwards; empty: refused
  } cases[] = {
      {"0608C80001000000", "0608C80001000000"},
      {"0608630001000100", ""},  // faster than 100 ms
      {"06110001", "06110001"},
      {"06130E00F039", "06130E00F0B9"},  // the pins without their bit
      {"06131F00E0B9", "06131F00E0B9"},
      {"06170F41000200000000000000010000000000000000", "06170F41000200000000000000010000000000000000"},
      {auto_nav5, "0624FFFF0403" + NAV5.substr(12)},
      {"0624FFFF0B03" + NAV5.substr(12), ""},
      {"060001000000C0080000019600000700030000000000", ""},  // 38401 baud
      {"0601020102", ""},
  };
  for (const auto& c : cases) {
    Host host;
    const std::string id = c.set.substr(0, 4);
    const std::string before = host.ask(id).at(0);
    EXPECT_THAT(host.ask(c.set), ElementsAre((c.kept.empty() ? "0500" : "0501") + id)) << c.set;
    EXPECT_EQ(host.ask(id).at(0), c.kept.empty() ? before : c.kept) << c.set;
  }
}

TEST(SimUbx, FailsAsItIsTold) {
  Host refuses("nak=0624,nak=0A28");
  EXPECT_THAT(refuses.ask("0624"), ElementsAre("05000624"));
  EXPECT_THAT(refuses.ask("0A28"), ElementsAre("05000A28"));
  EXPECT_EQ(refuses.ask("0608").size(), 2U);
  EXPECT_THAT(Host("newer").ask("063E"), ElementsAre("0500063E"));
  EXPECT_THAT(Host("mute").ask("0600"), testing::IsEmpty());
  Host late("late=700");
  EXPECT_THAT(late.ask("0600"), testing::IsEmpty());
  EXPECT_EQ(late.ask("0600").size(), 2U);
  for (const char* text :
       {"drop", "drop=1.1", "drop=nan", "drop=0,drop=0", "seed=-1", "nak=xyzz", "antenna=ok@x"})
    EXPECT_THROW((void)parse_faults(text), std::invalid_argument) << text;
}

}  // namespace
}  // namespace ecu::koru::sim
