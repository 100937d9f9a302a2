#include "sim/gnss/RouteFile.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

#include "sim/gnss/Files.h"
#include "sim/gnss/Text.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

struct Sample {
  RoutePoint point{};
  std::optional<double> time_s;
  std::optional<double> speed_ms;
  size_t line = 0;
};

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view BLANKS = " \t\r\n";
  const size_t first = text.find_first_not_of(BLANKS);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::optional<double> to_number(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

/// Reads a number. Throws FileError if `what` is missing or is not a number.
double number(std::string_view text, const std::string& what, const std::string& file, size_t line) {
  if (trimmed(text).empty()) throw FileError(file, line, what + " is missing");
  const auto value = to_number(text);
  if (!value) throw FileError(file, line, what + " is not a number: " + std::string(trimmed(text)));
  return *value;
}

constexpr double DEFAULT_SPEED_MS = 50.0 / 3.6;  // if the file has neither times nor speeds

void add_leg(Route& route, const Sample& from, const Sample& to) {
  if (from.time_s && to.time_s) return route.drive_in(to.point, *to.time_s - *from.time_s);
  if (from.speed_ms && to.speed_ms) return route.drive(to.point, *from.speed_ms, *to.speed_ms);
  route.drive(to.point, DEFAULT_SPEED_MS, DEFAULT_SPEED_MS);
}

/// Describes a route that is not closed yet.
std::string describe(const Route& there, const Route& closed, const Sample& sample) {
  if (there.length_m() <= 0) return "one place, where the vehicle stands";
  const auto km = [](double metres) { return decimal(metres / 1000, 2) + " km"; };
  const std::string pace = sample.time_s     ? "with the file's times"
                           : sample.speed_ms ? "with the file's speeds"
                                             : "at " + decimal(DEFAULT_SPEED_MS * 3.6, 0) + " km/h";
  std::string text = km(there.length_m()) + " in " + decimal(there.duration_s(), 1) + " s " + pace;
  if (const double back_m = closed.length_m() - there.length_m(); back_m > 0)
    text += ", then straight back to the start, " + km(back_m) + " at the mean speed of " +
            decimal(there.length_m() / there.duration_s() * 3.6, 1) + " km/h";
  return text + "; again and again";
}

LoadedRoute build(const std::vector<Sample>& samples, const std::string& file) {
  size_t line = samples.front().line;
  try {
    Route route(samples.front().point);
    for (size_t i = 1; i < samples.size(); ++i) {
      line = samples[i].line;
      add_leg(route, samples[i - 1], samples[i]);
    }
    const Route there = route;
    route.close();
    return {route, describe(there, route, samples.front())};
  } catch (const std::invalid_argument& e) {
    throw FileError(file, line, e.what());
  }
}

/// Reads the tags of an XML text one after the other. Skips comments, declarations
/// and processing instructions.
class TagScanner {
 public:
  struct Tag {
    std::string_view name;         ///< without a namespace prefix
    std::string_view attributes;   ///< text after the name
    std::string_view text_before;  ///< text between the previous tag and this one
    size_t line;
    bool closing, empty;
  };

  TagScanner(std::string_view text, const std::string& file) : m_text(text), m_file(file) {}

  std::optional<Tag> next() {
    const size_t text_begin = m_at;
    while (true) {
      const size_t open = m_text.find('<', m_at);
      if (open == std::string_view::npos) return std::nullopt;
      count_lines(open);
      if (!skip("<!--", "-->") && !skip("<![CDATA[", "]]>") && !skip("<?", "?>") && !skip("<!", ">"))
        return tag(m_text.substr(text_begin, open - text_begin));
    }
  }
  [[nodiscard]] size_t line() const { return m_line; }

 private:
  void count_lines(size_t to) {
    m_line += static_cast<size_t>(std::count(m_text.begin() + static_cast<std::ptrdiff_t>(m_at),
                                             m_text.begin() + static_cast<std::ptrdiff_t>(to), '\n'));
    m_at = to;
  }
  bool skip(std::string_view begin, std::string_view end) {
    if (!m_text.substr(m_at).starts_with(begin)) return false;
    const size_t stop = m_text.find(end, m_at + begin.size());
    if (stop == std::string_view::npos)
      throw FileError(m_file, m_line, "\"" + std::string(begin) + "\" never ends");
    count_lines(stop + end.size());
    return true;
  }
  /// Returns where the tag that begins at m_at ends. Ignores a '>' between quotes.
  [[nodiscard]] size_t tag_end() const {
    char quote = 0;
    for (size_t i = m_at + 1; i < m_text.size(); ++i) {
      const char c = m_text[i];
      if (quote != 0) {
        if (c == quote) quote = 0;
      } else if (c == '>') {
        return i;
      } else if (c == '<') {
        break;
      } else if (c == '"' || c == '\'') {
        quote = c;
      }
    }
    throw FileError(m_file, m_line, "a tag never ends");
  }
  Tag tag(std::string_view text_before) {
    const size_t end = tag_end();
    std::string_view body = m_text.substr(m_at + 1, end - m_at - 1);
    Tag found{{}, {}, text_before, m_line, body.starts_with('/'), body.ends_with('/')};
    if (found.closing) {
      body.remove_prefix(1);
    } else if (found.empty) {
      body.remove_suffix(1);
    }
    const size_t name_end = std::min(body.find_first_of(" \t\r\n"), body.size());
    found.name = body.substr(0, name_end);
    found.name.remove_prefix(found.name.find(':') + 1);  // npos + 1 is 0
    found.attributes = body.substr(name_end);
    count_lines(end + 1);
    return found;
  }

  std::string_view m_text;
  const std::string& m_file;
  size_t m_at = 0;
  size_t m_line = 1;
};

/// Returns the value of an attribute; empty if the attribute is absent.
std::string_view attribute(std::string_view attributes, std::string_view name) {
  while (true) {
    const size_t equals = attributes.find('=');
    if (equals == std::string_view::npos) return {};
    const std::string_view key = trimmed(attributes.substr(0, equals));
    const size_t open = attributes.find_first_of("\"'", equals);
    if (open == std::string_view::npos) return {};
    const size_t close = attributes.find(attributes[open], open + 1);
    if (close == std::string_view::npos) return {};
    if (key == name) return attributes.substr(open + 1, close - open - 1);
    attributes.remove_prefix(close + 1);
  }
}

class GpxReader {
 public:
  explicit GpxReader(const std::string& file) : m_file(file) {}

  void on_tag(const TagScanner::Tag& tag) {
    if (tag.name == "trkpt") {
      if (!tag.closing) begin(tag);
      if (tag.closing || tag.empty) finish(tag.line);
    } else if (m_inside && tag.closing && tag.name == "ele") {
      read_elevation(tag);
    } else if (m_inside && tag.closing && tag.name == "time") {
      read_time(tag);
    }
  }
  std::vector<Sample> take(size_t last_line) {
    if (m_inside) throw FileError(m_file, last_line, "the file ends inside a track point");
    if (m_samples.empty()) throw FileError(m_file, last_line, "no track point (trkpt) in the file");
    return std::move(m_samples);
  }

 private:
  void begin(const TagScanner::Tag& tag) {
    if (m_inside) throw FileError(m_file, tag.line, "a track point inside a track point");
    m_inside = true;
    const double altitude = m_current.point.altitude_m;  // of the previous point
    m_current = {};
    m_current.line = tag.line;
    m_current.point = {number(attribute(tag.attributes, "lat"), "attribute lat", m_file, tag.line),
                       number(attribute(tag.attributes, "lon"), "attribute lon", m_file, tag.line), altitude};
  }
  void read_elevation(const TagScanner::Tag& tag) {
    m_current.point.altitude_m = number(tag.text_before, "the elevation", m_file, tag.line);
    if (!m_has_elevation)
      for (Sample& earlier : m_samples) earlier.point.altitude_m = m_current.point.altitude_m;
    m_has_elevation = true;
  }
  void read_time(const TagScanner::Tag& tag) {
    const auto time_us = parse_iso8601(trimmed(tag.text_before));
    if (!time_us) throw FileError(m_file, tag.line, "not a time: " + std::string(trimmed(tag.text_before)));
    m_current.time_s = static_cast<double>(*time_us) / 1e6;
  }
  void finish(size_t line) {
    if (!m_inside) throw FileError(m_file, line, "the end of a track point that has no beginning");
    m_inside = false;
    if (!m_samples.empty() && m_samples.back().time_s.has_value() != m_current.time_s.has_value())
      throw FileError(m_file, m_current.line, "some track points have a time and some have none");
    m_samples.push_back(m_current);
  }

  const std::string& m_file;
  std::vector<Sample> m_samples;
  Sample m_current;
  bool m_inside = false;
  bool m_has_elevation = false;  // a point has had one
};

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const size_t end = text.find(separator);
    parts.push_back(trimmed(text.substr(0, end)));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

/// The columns of a CSV line: lat,lon,alt[,speed] unless a header says otherwise.
class Columns {
 public:
  /// `fields` are those of the first line.
  Columns(const std::vector<std::string_view>& fields, const std::string& file, size_t line) : m_file(file) {
    m_from_header = !to_number(fields.front());
    if (!m_from_header) {
      m_index = {0, 1, 2, fields.size() > 3 ? 3 : NONE};
      return;
    }
    for (size_t what = 0; what < TITLES.size(); ++what) {
      const auto found = std::find(fields.begin(), fields.end(), TITLES[what]);
      m_index[what] = found == fields.end() ? NONE : static_cast<size_t>(found - fields.begin());
    }
    if (m_index[lat] == NONE || m_index[lon] == NONE)
      throw FileError(file, line,
                      "neither a point (lat,lon,alt[,speed]) nor a header with the columns lat and lon");
  }
  [[nodiscard]] bool from_header() const { return m_from_header; }

  [[nodiscard]] Sample read(const std::vector<std::string_view>& fields, size_t line) const {
    const auto field = [&](size_t what) {
      const std::string_view text =
          m_index[what] < fields.size() ? fields[m_index[what]] : std::string_view{};
      return number(text, "column " + std::string(TITLES[what]), m_file, line);
    };
    Sample sample;
    sample.line = line;
    sample.point = {field(lat), field(lon), m_index[alt] == NONE ? 0.0 : field(alt)};
    if (m_index[speed] != NONE) sample.speed_ms = field(speed) / 3.6;
    return sample;
  }

 private:
  enum : size_t { lat, lon, alt, speed };
  static constexpr std::array<std::string_view, 4> TITLES{"lat", "lon", "alt", "speed"};
  static constexpr size_t NONE = SIZE_MAX;
  const std::string& m_file;
  std::array<size_t, 4> m_index{};
  bool m_from_header = false;
};

LoadedRoute parse_gpx(std::string_view text, const std::string& name) {
  TagScanner scanner(text, name);
  GpxReader reader(name);
  while (const auto tag = scanner.next()) reader.on_tag(*tag);
  return build(reader.take(scanner.line()), name);
}

LoadedRoute parse_csv(std::string_view text, const std::string& name) {
  std::vector<Sample> samples;
  std::optional<Columns> columns;
  size_t line = 0;
  for (const std::string_view row : split(text, '\n')) {
    ++line;
    if (row.empty() || row.front() == '#') continue;
    const auto fields = split(row, ',');
    const bool first = !columns;
    if (first) columns.emplace(fields, name, line);
    if (!first || !columns->from_header()) samples.push_back(columns->read(fields, line));
  }
  if (samples.empty()) throw FileError(name, line, "no point in the file");
  return build(samples, name);
}

}  // namespace

LoadedRoute load_route(const std::string& path) {
  const std::string bytes = read_file(path);
  std::string_view text = bytes;
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  return trimmed(text).starts_with('<') ? parse_gpx(text, path) : parse_csv(text, path);
}

}  // namespace ecu::koru::sim
