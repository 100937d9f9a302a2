#include "sim/gnss/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>

#include "VersionText.h"
#include "sim/gnss/Files.h"
#include "sim/gnss/LineEnds.h"
#include "sim/gnss/Receiver.h"
#include "sim/gnss/Replay.h"
#include "sim/gnss/RouteFile.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

constexpr int FAILED = 1;
constexpr int WRONG_OPTIONS = 2;

constexpr const char* FAULTS_HELP =
    "FAULT[,...]. Of sentences: drop=P, corrupt=P (one byte becomes another), split=P (a pause of 20 to 150 "
    "ms in the middle) with P the share of the sentences, 0 to 1; silence=SECONDS@EVERY (of every EVERY "
    "seconds the last SECONDS nothing is sent). Of commands: mute (none is heard), nak=CLASSID (hexadecimal, "
    "such as 0624; or all), late=MS, lose=P (answers that are not sent), newer (a generation that refuses "
    "CFG-GNSS, CFG-NAV5, CFG-NMEA, CFG-RXM and CFG-ANT and has no MON-HW), garbage-ubx=P (a random frame "
    "with a right checksum behind a sentence or instead of an answer). At a time: power-cycle@SECONDS, "
    "antenna=ok|open|short[@SECONDS]. reset-to=BAUD (after a power cycle the receiver is as new and has this "
    "speed, but for what was saved in its flash). seed=N (default 1)";
constexpr const char* FOOTER =
    "Commands on standard input, one a line: power-cycle, reset, antenna ok|open|short, mute on|off, "
    "drop P, corrupt P (P: the share of the sentences from now on, 0 to 1).";

struct Texts {
  std::string route, utc, faults, replay, gsv = "auto", nmea = "4.0";
  bool crlf = false;
  std::string antenna = "ok", supply = "on";
  std::vector<std::string> systems{"gps", "glonass"};
  std::vector<std::string> supported{"gps", "glonass", "galileo", "beidou"};
};

void add_drive_options(CLI::App& app, Texts& texts, ReceiverOptions& receiver, CLI::Option* replay) {
  const auto add = [&](const std::string& name, auto& value, const std::string& help) {
    return app.add_option(name, value, help)->excludes(replay);
  };
  add("--route", texts.route,
      "GPX (trkpt) or CSV (lat,lon,alt[,speed km/h]) file to drive, instead of the built-in one: with its "
      "times or speeds, without them at 50 km/h; then straight back to its start at the mean speed, and "
      "again");
  add("--rate", receiver.rate_hz, "epochs a second")->check(CLI::Range(1, 10))->capture_default_str();
  add("--utc", texts.utc, "UTC at the start, such as 2026-11-21T10:15:30Z (default: the machine's)");
  app.add_flag("--no-fix", receiver.no_fix, "no satellites: the sentences hold the time only")
      ->excludes(replay);
  add("--nmea", texts.nmea, "version of the sentences")
      ->check(CLI::IsMember({"4.0", "4.10"}))
      ->capture_default_str();
  add("--gsv", texts.gsv, "satellites in view; auto: at 1 Hz and 9600 baud or more")
      ->check(CLI::IsMember({"auto", "on", "off"}))
      ->capture_default_str();
  const auto add_systems = [&](const std::string& name, auto& value, const std::string& help) {
    add(name, value, help)
        ->delimiter(',')
        ->check(CLI::IsMember({"gps", "glonass", "galileo", "beidou"}))
        ->capture_default_str();
  };
  add_systems("--systems", texts.systems,
              "comma list of gps, glonass, galileo, beidou; each has its own GSA");
  add_systems("--supported", texts.supported, "the systems that can be chosen by command at all");
  app.add_flag("--factory", receiver.power_up_defaults,
               "starts as new: 9600 baud (or --baud), RMC, VTG, GGA, GSA, GSV and GLL at 1 Hz")
      ->excludes(replay);
  add("--antenna", texts.antenna, "its state at the start")
      ->check(CLI::IsMember({"ok", "open", "short"}))
      ->capture_default_str();
  add("--antenna-supply", texts.supply, "whether the saved settings feed it; without there is no fix")
      ->check(CLI::IsMember({"on", "off"}))
      ->capture_default_str();
}

void add_options(CLI::App& app, Texts& texts, ProgramOptions& options) {
  // CLI::Range accepts "nan".
  const CLI::Validator not_nan(
      [](const std::string& text) {
        return std::isnan(std::strtod(text.c_str(), nullptr)) ? "not a number" : std::string();
      },
      "");
  ReceiverOptions& receiver = options.receiver;
  app.add_option("--baud", receiver.baud, "the receiver's speed; at another one the host reads garbage")
      ->check(CLI::IsMember(std::set<unsigned>(RECEIVER_BAUDS.begin(), RECEIVER_BAUDS.end())))
      ->capture_default_str();
  CLI::Option* replay = app.add_option(
      "--replay", texts.replay,
      "plays a recorded byte log, or the recording of a link (pcap), from when the host opens the port");
  app.add_option("--speed", receiver.replay_speed, "how much faster the recording is played")
      ->check(CLI::Range(0.01, 1000.0) & not_nan)
      ->needs(replay)
      ->capture_default_str();
  app.add_flag("--loop", receiver.replay_loop, "plays the recording again and again")->needs(replay);
  app.add_flag("--crlf", texts.crlf, "plays NMEA lines that end with LF alone with CR LF")->needs(replay);
  add_drive_options(app, texts, receiver, replay);
  app.add_option("--fault", texts.faults, FAULTS_HELP);
  app.add_option("--link", options.link, "makes this symbolic link to the device, removed at the end");
  app.add_option("--sentence-trace", options.trace,
                 "writes a line for each sentence: monotonic time in ns, sentence");
  app.add_option("--trace", options.report.ubx_trace,
                 "writes every UBX frame of both directions, readable, to this file (-: standard output)");
  app.add_flag("--show", options.report.show, "writes the truth of every epoch to standard output");
  app.footer(FOOTER);
  app.add_option("--seconds", options.seconds, "ends by itself after that time")
      ->check(CLI::Range(0.0, 1e9) & not_nan);
}

int64_t utc_of(const std::string& text) {
  const auto utc_us = parse_iso8601(text);
  if (!utc_us) throw std::invalid_argument("--utc: not a time such as 2026-11-21T10:15:30Z: " + text);
  const int year = civil_time(*utc_us).year;
  if (year < 1980 || year > 2079) throw std::invalid_argument("--utc: a receiver's years are 1980 to 2079");
  return *utc_us;
}

std::vector<Constellation> constellations_of(const std::vector<std::string>& names,
                                             const std::string& option) {
  std::vector<Constellation> result;
  for (const Constellation candidate : ALL_CONSTELLATIONS)
    if (std::find(names.begin(), names.end(), names_of(candidate).option) != names.end())
      result.push_back(candidate);
  if (result.size() != names.size()) throw std::invalid_argument(option + ": one is given twice");
  return result;
}

Route reported_route(const std::string& path) {
  const LoadedRoute loaded = load_route(path);
  std::cerr << "gnss-sim: " << path << ": " << loaded.drive << '\n';
  return loaded.route;
}

/// Reports lines that an editor or a mail program has changed, because no host can take them for sentences.
std::shared_ptr<const Recording> load_recording(const std::string& path, bool crlf) {
  std::string bytes = read_file(path);
  const LineEnds ends = find_line_ends(bytes);
  if (crlf) {
    bytes = with_crlf(bytes, ends);
  } else if (!ends.without_cr.empty()) {
    std::cerr << "gnss-sim: " << path << ": " << ends.without_cr.size() << " of " << ends.lines
              << " lines end with LF alone, which no receiver sends; --crlf plays them with CR LF\n";
  }
  return std::make_shared<const Recording>(std::move(bytes), path);
}

/// Throws if an option is given that has no meaning for the recording of a link.
void check_alone(const CLI::App& app) {
  for (const CLI::Option* const option : app.get_options()) {
    const std::string name = option->get_name();
    if (option->count() > 0 && name != "--replay" && name != "--link" && name != "--seconds")
      throw std::invalid_argument(name +
                                  " does not go with the recording of a link, which is played as it is");
  }
}

std::shared_ptr<const LinkRecording> load_link(const std::string& path) {
  auto recording = std::make_shared<const LinkRecording>(load_link_recording(path));
  if (!recording->note.empty())
    std::cerr << "gnss-sim: " << path << ": " << recording->note << "; it is played up to there\n";
  return recording;
}

void interpret(const CLI::App& app, const Texts& texts, ProgramOptions& options) {
  if (!texts.replay.empty() && is_capture_file(texts.replay)) {
    check_alone(app);
    options.link_recording = load_link(texts.replay);
    return;
  }
  ReceiverOptions& receiver = options.receiver;
  if (!texts.utc.empty()) options.utc_us = utc_of(texts.utc);
  if (!texts.faults.empty()) receiver.faults = parse_faults(texts.faults);
  if (!texts.route.empty()) receiver.route = reported_route(texts.route);
  if (!texts.replay.empty()) receiver.recording = load_recording(texts.replay, texts.crlf);
  SentenceOptions& sentences = receiver.sentences;
  sentences.version = texts.nmea == "4.10" ? NmeaVersion::v4_10 : NmeaVersion::v4_0;
  const bool automatic = receiver.rate_hz == 1 && receiver.baud >= 9600;
  sentences.gsv = texts.gsv == "on" || (texts.gsv == "auto" && automatic);
  sentences.constellations = constellations_of(texts.systems, "--systems");
  receiver.supported = constellations_of(texts.supported, "--supported");
  receiver.antenna = antenna_state_of(texts.antenna).value_or(AntennaState::ok);
  receiver.antenna_supply = texts.supply == "on";
}

}  // namespace

ParsedOptions parse_options(int argc, const char* const* argv) {
  ProgramOptions options;
  Texts texts;
  CLI::App app("A simulated satellite receiver behind a pseudo-terminal. Prints the device's path first.",
               "gnss-sim");
  app.set_version_flag("--version", std::string("gnss-sim ") + SATNAVD_VERSION_TEXT,
                       "prints the version and ends");
  add_options(app, texts, options);
  try {
    app.parse(argc, argv);
    interpret(app, texts, options);
    if (app.count("--baud") > 0) options.receiver.initial_baud = options.receiver.baud;
    (void)Receiver(options.receiver);  // throws if options contradict each other
    return {options, 0};
  } catch (const CLI::Success& e) {
    return {std::nullopt, app.exit(e)};
  } catch (const FileError& e) {
    std::cerr << "gnss-sim: " << e.what() << '\n';
    return {std::nullopt, FAILED};
  } catch (const std::exception& e) {
    std::cerr << "gnss-sim: " << e.what() << '\n';
    return {std::nullopt, WRONG_OPTIONS};
  }
}

}  // namespace ecu::koru::sim
