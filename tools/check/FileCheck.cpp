#include "tools/check/FileCheck.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <utility>

#include "platform/rt/Signals.h"
#include "tools/check/OwnFindings.h"
#include "tools/check/Secrets.h"

namespace ecu::koru::check {

namespace {

/// What holds for a key without value.
struct Unset {
  std::string_view key, value, source;
};
constexpr std::array<Unset, 5> UNSET{
    {{"loglevel", "INFO", "default"},
     {"debugflags", "0x1", "default"},
     {"gnss_device", "/dev/ttyFP3, on n2 /dev/spidev2.0", "the unit's hardware"},
     {"gnss_augmentation", "SBAS and QZSS if GPS is used", "the systems"},
     {"signal_database", "the built-in one", "built in"}}};

class FileCheck {
 public:
  FileCheck(const File& file, Report& report) : m_file(file), m_report(report) {}

  void run() {
    check_lines();
    take(m_file.settings.findings, true);
    com::MqttOptions again;
    take(config::read_keys(*m_file.config, com::mqtt_keys(), again), true);
    check_files();
    for (OwnFinding& own : own_findings(*m_file.config, m_file.settings, m_file.broker)) {
      if (!own.taken.empty() && own.replaces) m_taken[own.key] = own.taken;
      add({.key = own.key, .problem = own.problem, .taken = own.taken});
    }
    std::ranges::stable_sort(m_report.findings, {}, &Finding::line);
    add_settings(gpspub::settingsKeys(), m_file.settings);
    add_settings(com::mqtt_keys(), m_file.broker);
  }

 private:
  void check_lines() {
    const config::Configuration& config = *m_file.config;
    m_report.starts = config.faulty_lines().empty();
    for (const auto& [line, text] : config.faulty_lines())
      m_report.findings.push_back({.line = line,
                                   .problem = without_secrets(text),
                                   .taken = "the service does not start",
                                   .allowed = "key = value, a comment or an empty line",
                                   .level = "ERROR"});
    for (const auto& [line, key] : config.unknown_keys())
      m_report.findings.push_back({.line = line,
                                   .key = logging::escaped(key),
                                   .value = shown_value(key, config.get(key)),
                                   .problem = unknown_key(key),
                                   .taken = "nothing, the line is ignored",
                                   .level = "WARNING"});
    for (const auto& [line, key] : config.overridden_lines())
      m_report.findings.push_back({.line = line,
                                   .key = logging::escaped(key),
                                   .problem = "the key is given again",
                                   .taken = logging::text("line ", config.line(key))});
  }

  void check_files() {
    const auto faults = com::file_faults(m_file.broker);
    take(faults, false);
    take(com::open_secrets(m_file.broker), false);
    const bool has_password =
        !m_file.broker.password_file.empty() &&
        std::ranges::find(faults, "password_file", &config::Finding::key) == faults.end();
    if (has_password) take(com::password_of(m_file.broker.password_file).finding, false);
    if (const auto& path = m_file.settings.signal_database; !path.empty())
      take(rt::read_database(path).finding, true);
  }

  /// Adds what the service's own reading found. `replaces`: what is taken is the key's value.
  template <typename Findings>
  void take(const Findings& findings, bool replaces) {
    for (const config::Finding& found : findings) take(std::optional(found), replaces);
  }
  void take(const std::optional<config::Finding>& found, bool replaces) {
    if (!found) return;
    const std::string key(found->key);
    if (replaces && !found->taken.empty()) m_taken[key] = found->taken;
    add({.key = key,
         .problem = found->record,
         .taken = found->taken,
         .level = std::string(logging::level_name(found->level))});
  }

  void add(Finding finding) {
    finding.line = m_file.config->line(finding.key);
    const std::string value = m_file.config->get(finding.key);
    finding.value = shown_value(finding.key, value);
    if (is_secret(finding.key, value)) finding.problem = without(finding.problem, value);
    if (finding.taken.empty()) finding.taken = "the value all the same";
    finding.allowed = allowed(finding.key);
    m_report.findings.push_back(std::move(finding));
  }

  [[nodiscard]] static std::string allowed(std::string_view name) {
    for (const auto& key : gpspub::settingsKeys())
      if (key.name == name) return std::string(key.allowed);
    for (const auto& key : com::mqtt_keys())
      if (key.name == name) return std::string(key.allowed);
    return {};
  }

  template <typename Target>
  void add_settings(std::span<const config::Key<Target>> keys, const Target& target) {
    for (const auto& key : keys) {
      const std::string name(key.name);
      const unsigned line = m_file.config->line(name);
      const bool given = line != 0 && !m_file.config->get(name).empty();
      Setting setting{name, shown_value(name, key.show(target)),
                      given ? logging::text("line ", line) : "default"};
      if (const auto taken = m_taken.find(name); taken != m_taken.end()) {
        setting.value = taken->second;
        setting.source = logging::text("in place of line ", line);
      } else if (!given && setting.value.empty()) {
        const auto* const unset = std::ranges::find(UNSET, key.name, &Unset::key);
        const bool known = unset != UNSET.end();
        setting.value = known ? unset->value : "none";
        setting.source = known ? unset->source : "default";
      }
      if (given) setting.source += note_of(name, m_file.settings);
      m_report.settings.push_back(std::move(setting));
    }
  }

  const File& m_file;
  Report& m_report;
  std::map<std::string, std::string, std::less<>> m_taken;  // by key
};

}  // namespace

std::optional<File> read_file(const std::string& path) {
  std::ifstream input(path);
  if (!input.is_open()) return std::nullopt;
  input.peek();  // a folder can be opened but not read
  if (input.bad()) return std::nullopt;
  File file;
  file.path = std::filesystem::absolute(path).lexically_normal().string();
  file.config = std::make_unique<config::Configuration>();
  input.clear();
  config::set_config_from_input(file.config, input);
  gpspub::registerKeys(*file.config);
  file.settings = gpspub::readSettings(*file.config);
  file.broker = com::read_mqtt_options(*file.config);
  return file;
}

void check_file(const File& file, Report& report) {
  FileCheck(file, report).run();
}

}  // namespace ecu::koru::check
