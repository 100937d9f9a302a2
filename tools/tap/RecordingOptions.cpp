#include "tools/tap/RecordingOptions.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "platform/base/Numbers.h"
#include "platform/com/Transport.h"
#include "tools/common/Options.h"

namespace ecu::koru::tap {

namespace {

constexpr double SLOWEST = 0.01;
constexpr double FASTEST = 1000;

std::optional<double> degrees(std::string_view text, double largest) {
  const auto value = to_number<double>(text);
  return value && *value >= -largest && *value <= largest ? value : std::nullopt;
}

Position position(const std::string& text) {
  const size_t comma = text.find(',');
  if (comma != std::string::npos) {
    const auto latitude = degrees(std::string_view(text).substr(0, comma), 90);
    const auto longitude = degrees(std::string_view(text).substr(comma + 1), 180);
    if (latitude && longitude) return {*latitude, *longitude};
  }
  throw CLI::ValidationError("--reference", "not a position such as 48.137154,11.576120: " + text);
}

std::string check_topic(const std::string& topic) {
  return com::is_publish_topic(topic) ? std::string() : "not an MQTT topic: " + topic;
}

void add_files(CLI::App& app, RecordingOptions& options) {
  app.add_option("--record", options.record,
                 "Keep the messages, whatever is shown, in a file for --read and --replay")
      ->check(tool::file_name());
  app.add_option("--read", options.read,
                 "Take the messages from a recording instead of the bus; - is standard input")
      ->check(tool::file_name());
  app.add_option("--replay", options.replay, "Publish the messages of a recording on the bus of a bench")
      ->check(tool::file_name());
  app.add_option(
         "--speed", options.speed,
         "Speed of playing relative to the recording [--replay: 1; --read: as fast as possible, but 1 where "
         "the pace matters]")
      ->check(CLI::Range(SLOWEST, FASTEST) & tool::not_nan());
  app.add_flag("--loop", options.loop, "Replay again and again");
}

void add_figures(CLI::App& app, RecordingOptions& options) {
  app.add_flag(
      "--summary", options.summary,
      "At the end, write what the run amounts to instead of showing the messages; with --json as JSON");
  add_listen_option(app, "--prometheus", options.prometheus,
                    "Serve the same figures and the service's health at /metrics instead of showing the "
                    "messages [address 127.0.0.1]");
  app.add_option_function<std::string>(
         "--reference", [&options](const std::string& text) { options.reference = position(text); },
         "The true position, for the scatter [the mean of all positions]")
      ->type_name("LAT,LON");
  app.add_option("--health-topic", options.health_topic,
                 "The service's health_topic, for --prometheus [system/gnss/health]")
      ->check(CLI::Validator(check_topic, "TOPIC"));
}

constexpr std::array<std::string_view, 4> BUS_OPTIONS = {"--host", "--port", "--config", "--client-name"};
constexpr std::array<std::string_view, 4> REPLAY_OPTIONS = {"--replay", "--speed", "--loop", "--seconds"};

/// The first option needs one of the others.
struct Requirement {
  const char* option;
  std::array<const char*, 2> any_of;
  const char* said;
};
constexpr Requirement REQUIREMENTS[] = {
    {"--speed", {"--read", "--replay"}, "--speed requires --read or --replay"},
    {"--loop", {"--replay", "--replay"}, "--loop requires --replay"},
    {"--reference", {"--summary", "--prometheus"}, "--reference requires --summary or --prometheus"},
    {"--health-topic", {"--prometheus", "--prometheus"}, "--health-topic requires --prometheus"}};

/// The option shows the messages in a way that leaves nothing for the others to do.
struct Exclusion {
  const char* option;
  std::vector<const char*> others;
};
const Exclusion EXCLUSIONS[] = {
    {"--live", {"--json", "--sentences", "--changes", "--count", "--nmea", "--summary", "--prometheus"}},
    {"--nmea", {"--topic", "--json", "--sentences", "--changes", "--count", "--summary", "--prometheus"}},
    {"--summary", {"--sentences", "--changes", "--count"}},
    {"--prometheus", {"--sentences", "--changes", "--count"}}};

template <size_t N>
bool is_among(const std::array<std::string_view, N>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool given(const CLI::App& app, const char* option) {
  return app.count(option) > 0;
}

/// Returns the name of a given option that cannot go with --read or --replay; empty if there is none.
std::string misplaced(const CLI::App& app, bool replay) {
  for (const auto* const option : app.get_options()) {
    if (option->count() == 0) continue;
    std::string name = option->get_name();
    const bool for_bus = is_among(BUS_OPTIONS, name);
    if (replay ? !for_bus && !is_among(REPLAY_OPTIONS, name) : for_bus) return name;
  }
  return {};
}

}  // namespace

void add_recording_options(CLI::App& app, RecordingOptions& options) {
  add_files(app, options);
  add_figures(app, options);
}

std::string recording_conflict(const CLI::App& app) {
  for (const char* const mode : {"--replay", "--read"}) {
    if (!given(app, mode)) continue;
    if (const auto name = misplaced(app, std::string_view(mode) == "--replay"); !name.empty())
      return std::string(mode) + " excludes " + name;
  }
  for (const auto& row : REQUIREMENTS) {
    if (given(app, row.option) && !given(app, row.any_of[0]) && !given(app, row.any_of[1])) return row.said;
  }
  for (const auto& row : EXCLUSIONS) {
    for (const char* const other : row.others) {
      if (given(app, row.option) && given(app, other)) return std::string(row.option) + " excludes " + other;
    }
  }
  if (given(app, "--prometheus") && given(app, "--json") && !given(app, "--summary"))
    return "--prometheus excludes --json without --summary";
  return {};
}

}  // namespace ecu::koru::tap
