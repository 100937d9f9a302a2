// Writes the first inputs of all targets, from the simulated receiver's bytes and the messages of the unit's
// other programs. fuzz_seeds FOLDER creates FOLDER/TARGET/NAME.

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <vector>

#include "fuzz/FuzzTarget.h"
#include "platform/rt/BuiltinSignals.h"
#include "proto/nvxproto.pb.h"
#include "sim/gnss/Receiver.h"
#include "support/Frames.h"

namespace {

using namespace ecu::koru;
using namespace std::string_literals;
namespace fs = std::filesystem;

/// Returns the value, at most 255, as a byte of an input.
std::string byte(size_t value) {
  return std::string(1, static_cast<char>(std::min<size_t>(value, 255)));
}

std::string numbered(std::string name, size_t number) {
  return name.append(std::to_string(number));
}

class Folder {
 public:
  explicit Folder(fs::path root) : m_root(std::move(root)) {}
  /// Adds the input twice: with little logged and with everything logged.
  void add(const std::string& target, const std::string& name, const std::string& input) const {
    fs::create_directories(m_root / target);
    for (const char logging : {'0', '1'}) {
      std::ofstream file(m_root / target / (name + '-' + logging), std::ios::binary);
      file << logging << input << std::flush;
      if (!file) throw std::runtime_error("cannot write to " + (m_root / target).string());
    }
  }

 private:
  fs::path m_root;
};

/// Returns a receiver's bytes of 2.5 s, cut every 100 ms, while its host polls everything.
std::vector<std::string> drive(const std::string& faults, int rate_hz, bool no_fix = false) {
  constexpr std::array<sim::UbxId, 10> POLLS{{{0x06, 0x00},
                                              {0x06, 0x13},
                                              {0x06, 0x3E},
                                              {0x06, 0x24},
                                              {0x06, 0x99},  // the receiver refuses it
                                              {0x0A, 0x04},
                                              {0x0A, 0x09},
                                              {0x0A, 0x28},
                                              {0x01, 0x21},
                                              {0x06, 0x08}}};
  sim::ReceiverOptions options;
  options.rate_hz = rate_hz;
  options.no_fix = no_fix;
  if (!faults.empty()) options.faults = sim::parse_faults(faults);
  sim::Receiver receiver(options);
  std::vector<std::string> pieces;
  for (int64_t tenth = 1; tenth <= 25; ++tenth) {
    receiver.advance_to(tenth * 100'000);
    std::string piece(receiver.available(), '\0');
    receiver.read({reinterpret_cast<uint8_t*>(piece.data()), piece.size()});
    pieces.push_back(piece);
    if (tenth % 2 == 0) continue;
    const sim::UbxId poll = POLLS[static_cast<size_t>(tenth / 2) % POLLS.size()];
    const std::string frame = test::ubx(poll.message_class, poll.id, "");
    receiver.write({reinterpret_cast<const uint8_t*>(frame.data()), frame.size()});
  }
  return pieces;
}

std::string joined(const std::vector<std::string>& pieces) {
  std::string all;
  for (const auto& piece : pieces) all += piece;
  return all;
}

/// Returns the text between "$" and "*" of each sentence.
std::vector<std::string> bodies(const std::string& stream) {
  std::vector<std::string> found;
  for (size_t at = 0; (at = stream.find('$', at)) != std::string::npos; ++at) {
    const size_t star = stream.find('*', at);
    if (star != std::string::npos) found.push_back(stream.substr(at + 1, star - at - 1));
  }
  return found;
}

void add_streams(const Folder& folder, const std::string& name, const std::vector<std::string>& pieces) {
  const std::string stream = joined(pieces);
  folder.add("framing", name + "-in-small-pieces", byte(1) + byte(6) + stream);
  folder.add("framing", name + "-in-large-pieces", byte(0) + byte(200) + stream);
  // Reads by polling, by the line, with answers, and with failures.
  for (const size_t event : {size_t{192}, size_t{193}, size_t{197}, size_t{204}}) {
    std::string events;
    for (size_t at = 0; at < stream.size(); at += 1600)
      events += byte(event) + byte(100) + stream.substr(at, 1600);
    folder.add("spi", numbered(name + "-event-", event), events);
  }
  std::string lines;
  for (const auto& body : bodies(stream)) lines += (body.substr(2, 3) == "RMC" ? "9" : "0") + body + "\n";
  folder.add("epochs", name, lines);
  std::string script = byte(0);
  std::string carry;
  for (const auto& piece : pieces) {
    carry += piece;
    const size_t quads = std::min<size_t>(carry.size() / 4, 0x9F);
    script += byte(5) + byte(quads) + carry.substr(0, quads * 4);
    carry.erase(0, quads * 4);
  }
  for (const size_t variant : {size_t{0}, size_t{1}, size_t{128}}) {
    script[0] = static_cast<char>(variant);
    folder.add("service", numbered(name + "-unit-", variant), script);
  }
}

void add_sentences(const Folder& folder, const std::string& stream) {
  constexpr std::array<std::string_view, 4> KINDS{"RMC", "GGA", "GSA", "GST"};
  std::set<std::string> done;
  for (const auto& body : bodies(stream)) {
    const auto* const kind = std::find(KINDS.begin(), KINDS.end(), body.substr(2, 3));
    if (kind == KINDS.end() || !done.insert(std::string(*kind)).second) continue;
    folder.add("sentences", std::string(*kind),
               byte(static_cast<size_t>(kind - KINDS.begin())) + byte(7) + test::nmea(body));
  }
}

/// Adds bytes that a receiver of this kind does not send.
void add_edges(const Folder& folder) {
  constexpr std::array<std::string_view, 9> BODIES{
      "GNRMC,123519.50,A,4807.03800,S,01131.00000,W,022.4,084.4,010169,,,A",
      "GNRMC,235960.00,A,0000.00000,N,00000.00000,E,0,0,311268,,,A",
      "GNRMC,120000,A,9999999.9,N,99999999.9,E,1e999,nan,290200,,,A",
      "GNRMC,,V,,,,,,,,,,N",
      "GNGGA,1,4807.038,N,01131.0,E,1,99999999999,0.9,1e999,M,,M,,",
      "GNGGA,,,,,,/,,,inf,M,,M,,",
      "GNGSA,A,9,,,,,,,,,,,,,nan,inf,-1",
      "GNGST,1,,,,,1e308,-1,",
      "GPTXT,01,01,02,text"};
  std::string stream;
  std::string lines;
  for (const auto body : BODIES) {
    stream += test::nmea(body);
    lines += "1" + std::string(body) + "\n" +
             (body.substr(2, 3) == "RMC" ? "1GNGST,,,,,,,,\n1GNGST,,,,,,,,\n1GNGST,,,,,,,,\n" : "");
    folder.add("sentences", numbered("edge-", lines.size()), byte(0) + byte(7) + test::nmea(body));
  }
  folder.add("epochs", "edges", lines);
  folder.add("framing", "full-buffer", byte(1) + byte(250) + "\xB5" + std::string(11'000, 'x') + stream);
  folder.add("spi", "stuck-line",
             byte(193) + byte(20) + stream + byte(130) + byte(9) + "123456789" + byte(2) + byte(9) +
                 "123456789" + byte(197) + byte(255) + "\xB5" + std::string(4079, 'x'));
  folder.add("framing", "over-long-line", byte(1) + byte(250) + "$" + std::string(5000, 'x') + stream);
  folder.add("framing", "edges",
             byte(1) + byte(30) + stream + "$no end" + test::ubx(1, 2, std::string(5000, 'x')));
}

/// Adds each answer as an event, and all of them in order.
void add_answers(const Folder& folder, const std::string& stream) {
  constexpr size_t ANY_KIND = 10;
  std::string all = byte(3);
  for (size_t at = 0; (at = stream.find("\xB5\x62", at)) != std::string::npos; at += 2) {
    if (at + 6 > stream.size()) break;
    const size_t length = static_cast<uint8_t>(stream[at + 4]) + 256U * static_cast<uint8_t>(stream[at + 5]);
    const std::string event = byte(ANY_KIND) + stream.substr(at + 2, 2) + byte(length) +
                              stream.substr(at + 6, std::min<size_t>(length, 255));
    all += event;
    folder.add("ubx", numbered("answer-", at), byte(3) + event);
  }
  folder.add("ubx", "answers", all);
  const auto wait = [](size_t tenths) { return byte(200) + byte(tenths); };
  std::string hunting = byte(1);
  for (int i = 0; i < 100; ++i) hunting += wait(31);
  folder.add("ubx", "no-answers", hunting);
  folder.add("ubx", "radio-silence",
             all + byte(230) + byte(1) + all.substr(1) + byte(230) + byte(0) + all.substr(1));
}

std::string on_topic(size_t topic, size_t form, const std::string& payload) {
  return byte(topic) + byte(form) + byte(payload.size()) + payload;
}

void add_bus(const Folder& folder) {
  pb::TimeZone zone;
  zone.set_hour_offset(-3), zone.set_minute_offset(-30), zone.set_summer_time(true);
  zone.set_source(pb::TimeZone_Source_SYSTEM);
  pb::GnssSource source;
  source.set_source(pb::GnssSource_Source_CAN);
  pb::RtSignal signal;
  signal.set_value("\x01\x02");
  pb::SystemParameters parameters;
  for (const uint32_t id : {0xA00FU, 0xA01FU, 0xA020U, 0xA021U, 0xA022U, 0xA060U, 0xA09BU, 0x2045U}) {
    auto& entry = (*parameters.mutable_entries())[id];
    entry.set_flags(1), entry.set_value("\x02");
  }
  pb::GnssData fix;
  fix.set_longitude(11.5F), fix.set_latitude(48.1F), fix.set_status(3), fix.add_nmea(test::nmea("GNRMC,"));
  const std::array<std::string, 5> bodies{fix.SerializeAsString(), signal.SerializeAsString(),
                                          source.SerializeAsString(), zone.SerializeAsString(),
                                          parameters.SerializeAsString()};
  std::string all;
  for (size_t i = 0; i < bodies.size(); ++i) {
    folder.add("envelope", numbered("body-", i), byte(i) + byte(1) + bodies[i]);
    const std::string header =
        "\x09\x01\x00\x12\x00"s + byte(bodies[i].size()) + "\0\0\0\x11\1\2\3\4\5\6\7\0"s;
    folder.add("envelope", numbered("whole-", i), byte(i) + byte(0) + header + bodies[i]);
  }
  for (size_t topic = 0; topic < 10; ++topic) all += on_topic(topic, 2, "\x01");
  all += on_topic(2, 1, bodies[2]) + on_topic(10, 1, bodies[3]) + on_topic(11, 1, bodies[4]);
  folder.add("observers", "each-topic", all);
  folder.add("observers", "any-topic", byte(12) + "any/topic\n" + on_topic(2, 2, "\x01").substr(1));
}

void add_can_frames(const Folder& folder) {
  const std::array<std::string, 5> frames{
      "\x00\xA3\x1C\x9A\x80\x3C\x0A\x84"s, "\x0C\x0B\x0C\x0F\xFF\xFF\xFF\xFF"s,
      "\x80\x20\x40\x32\xFF\xFF\x40\x5F"s, "\x02\x01\xFF\x40\x5F\x05\xFF\xFF"s,
      "\x88\x21\x0A\x0B\x58\x29\x7D\x7D"s};
  std::string all;
  for (size_t i = 0; i < frames.size(); ++i) {
    all += on_topic(i, 2, frames[i]);
    folder.add("can_input", numbered("group-", i), on_topic(i, 2, frames[i]) + byte(5));
  }
  folder.add("can_input", "fixes", all + byte(5) + all + byte(5) + byte(5));
  std::string no_dates = all;
  for (size_t at = 0; at < 6; ++at) {
    for (const char value : {'\0', '\x3D', '\xFA'}) {
      std::string date = frames[4];
      date[at] = value;
      no_dates += on_topic(4, 2, date) + byte(5);
    }
  }
  folder.add("can_input", "no-dates", no_dates);
}

void add_files(const Folder& folder) {
  folder.add(
      "configuration", "all-keys",
      "# the unit's receiver\r\nhost = 127.0.0.1\nport=1883\nclient_name = \"satnavd 2\"\n\nbaud_rate = "
      "0x9600\n"
      "logmode=STDERR\nloglevel = DEBUG\ndebugflags = 0xFFFFFFFF\ngnss_system=0x0B\ngnss_augmentation = 3\n"
      "set_system_time = true\nradio_silence_configured = 1\ndisable_mqtt_system_selection = true\n"
      "disable_hw_init = 1\ngnss_device = /dev/ttyFP3\nraw_cmd_post[0] = B56206010300F021010000\n"
      "raw_cmd_post[1] = B5\nconnect_timeout_ms=100\nvar_timeout_ms = 0\nusername = a\npassword_file = /x\n");
  folder.add("configuration", "faults",
             "= 1\nkey\na b = 2\nport = 70000\nbaud_rate = many\nloglevel = LOUD\nunknown=1\n");
  folder.add("signals", "built-in", std::string(rt::BUILTIN_SIGNALS) + '\0' + std::string(200, '\x40'));
  folder.add("signals", "one-group",
             "VERSION \"\"\nNS_ :\n  CM_\nBS_:\nBU_: Unit\nBO_ 2566845438 VP1: 8 Unit\n"
             " SG_ latitude : 0|32@1+ (1E-7,-210) [-210|211] \"deg\" Vector__XXX\n SG_ b : 32|7@1+ (0.5,0) "
             "[0|1] \"\" X\n"
             "BA_DEF_ BO_ \"TxTopic\" STRING ;\nBA_DEF_DEF_ \"TxTopic\" \"\";\nBA_ \"TxTopic\" BO_ "
             "2566845438 \"a/b\";\n"
             "SIG_VALTYPE_ 2566845438 latitude : 0;\n\0@@@@@@@@@@@@"s);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: fuzz_seeds FOLDER\n";
    return 2;
  }
  const Folder folder(argv[1]);
  add_streams(folder, "drive", drive("", 1));
  add_streams(folder, "fast-drive", drive("", 4));
  add_streams(folder, "no-fix", drive("", 1, true));
  add_streams(folder, "corrupt", drive("corrupt=0.3,drop=0.1,split=0.2,garbage-ubx=0.3", 2));
  const std::string clean = joined(drive("", 1));
  add_sentences(folder, clean);
  add_answers(folder, clean);
  add_edges(folder);
  add_bus(folder);
  add_can_frames(folder);
  add_files(folder);
  return 0;
}
