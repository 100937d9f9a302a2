#include "tools/check/Report.h"

#include <algorithm>
#include <iterator>

#include "platform/base/Logging.h"

namespace ecu::koru::check {

namespace {

std::string padded(std::string text, size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text + "  ";
}

std::string number_of(size_t count) {
  if (count == 0) return "no findings";
  return count == 1 ? "1 finding" : std::to_string(count) + " findings";
}

std::string shortened(const std::string& value) {
  constexpr size_t LONGEST = 48;
  return value.size() <= LONGEST ? value : value.substr(0, LONGEST - 3) + "...";
}

std::string heading(const Finding& finding) {
  std::string text = "line " + std::to_string(finding.line);
  if (!finding.key.empty()) text += "  " + finding.key;
  if (!finding.value.empty()) text += " = " + shortened(finding.value);
  return text + "\n";
}

/// What is taken and allowed stands once below findings that share it.
std::string finding_text(const Finding& finding, const Finding* next) {
  const bool shared = next != nullptr && heading(*next) == heading(finding) && next->taken == finding.taken;
  std::string text = "    " + finding.problem;
  if (!finding.level.empty()) text += " [the service logs this at " + finding.level + "]";
  text += "\n";
  if (!finding.taken.empty() && !shared) text += "    taken:    " + finding.taken + "\n";
  if (!finding.allowed.empty() && !shared) text += "    allowed:  " + finding.allowed + "\n";
  return text;
}

std::string findings_text(const Report& report) {
  std::string text;
  std::string last;
  for (auto finding = report.findings.begin(); finding != report.findings.end(); ++finding) {
    if (const std::string now = heading(*finding); now != last) text += "\n" + (last = now);
    const auto next = std::next(finding);
    text += finding_text(*finding, next == report.findings.end() ? nullptr : &*next);
  }
  if (!report.starts) text += "\nThe service does not start with this file.\n";
  return text;
}

std::string settings_text(const Report& report) {
  size_t key_width = 0;
  size_t value_width = 0;
  for (const Setting& setting : report.settings) {
    key_width = std::max(key_width, setting.key.size());
    value_width = std::max(value_width, shortened(setting.value).size());
  }
  std::string text = "\nIn effect:\n";
  for (const auto& [key, value, source] : report.settings)
    text += "  " + padded(key, key_width) + padded(shortened(value), value_width) + source + "\n";
  return text;
}

std::string unit_text(const Report& report) {
  size_t width = 0;
  for (const Fact& fact : report.unit) width = std::max(width, fact.subject.size());
  std::string text = "\nThe unit (! marks a finding):\n";
  const std::string* area = nullptr;
  for (const Fact& fact : report.unit) {
    if (area == nullptr || *area != fact.area) text += "  " + fact.area + "\n";
    area = &fact.area;
    text += (fact.is_finding ? "  ! " : "    ") + padded(fact.subject, width) + fact.text + "\n";
  }
  return text;
}

nlohmann::ordered_json json_of(const Finding& finding) {
  nlohmann::ordered_json json{{"line", finding.line}, {"key", finding.key}, {"value", finding.value}};
  json["problem"] = finding.problem;
  json["taken"] = finding.taken;
  json["allowed"] = finding.allowed;
  json["level"] = nullptr;
  if (!finding.level.empty()) json["level"] = finding.level;
  return json;
}

nlohmann::ordered_json json_of(const Fact& fact) {
  nlohmann::ordered_json json{
      {"area", fact.area}, {"subject", fact.subject}, {"text", fact.text}, {"finding", fact.is_finding}};
  if (!fact.data.is_null()) json["data"] = fact.data;
  return json;
}

}  // namespace

size_t Report::count() const {
  return findings.size() + static_cast<size_t>(std::ranges::count_if(unit, &Fact::is_finding));
}

std::string as_text(const Report& report) {
  std::string text = report.file + ": " + number_of(report.findings.size()) + "\n" + findings_text(report) +
                     settings_text(report);
  if (!report.live) return text;
  return text + unit_text(report) + "\n" + number_of(report.count()) + " in all\n";
}

std::string as_json(const Report& report) {
  nlohmann::ordered_json json{{"file", report.file}, {"starts", report.starts}};
  json["findings"] = nlohmann::ordered_json::array();
  for (const Finding& finding : report.findings) json["findings"].push_back(json_of(finding));
  json["settings"] = nlohmann::ordered_json::object();
  for (const auto& [key, value, source] : report.settings)
    json["settings"][key] = {{"value", value}, {"source", source}};
  if (report.live) {
    json["unit"] = nlohmann::ordered_json::array();
    for (const Fact& fact : report.unit) json["unit"].push_back(json_of(fact));
  }
  return json.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace ecu::koru::check
