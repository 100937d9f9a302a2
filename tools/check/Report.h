#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace ecu::koru::check {

/// Something in the file that does not have the effect that its author probably expects.
struct Finding {
  unsigned line = 0;
  std::string key{};  ///< empty: the line is no setting
  std::string value{};
  std::string problem{};
  std::string taken{};    ///< what the service does or takes instead
  std::string allowed{};  ///< empty: see the problem
  std::string level{};    ///< of the service's record about it; empty: the service logs none
};

/// The value of a key that the service uses.
struct Setting {
  std::string key;
  std::string value;
  std::string source;
};

/// Something that was seen on the unit.
struct Fact {
  std::string area;
  std::string subject;
  std::string text;
  bool is_finding = false;
  nlohmann::ordered_json data{};  ///< its numbers, for programs; may be null
};

struct Report {
  std::string file;
  bool starts = true;  ///< the service starts with this file
  std::vector<Finding> findings{};
  std::vector<Setting> settings{};
  bool live = false;
  std::vector<Fact> unit{};

  void note(std::string area, std::string subject, std::string text) {
    unit.push_back({std::move(area), std::move(subject), std::move(text)});
  }
  void find(std::string area, std::string subject, std::string text) {
    unit.push_back({std::move(area), std::move(subject), std::move(text), true});
  }
  [[nodiscard]] size_t count() const;
};

/// Returns the report for people: the findings by line, the settings as a table, then the unit.
[[nodiscard]] std::string as_text(const Report& report);
/// Returns the report as one JSON document in ASCII.
[[nodiscard]] std::string as_json(const Report& report);

}  // namespace ecu::koru::check
