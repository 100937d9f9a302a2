#include "tools/tap/Track.h"

#include "platform/base/Logging.h"
#include "tools/tap/Fields.h"
#include "tools/tap/IsoTime.h"

namespace ecu::koru::tap {

namespace {

using logging::text;

constexpr int DEGREE_DECIMALS = 7;  // 1 cm

std::string time_text(const Fix& fix) {
  return iso_time(fix.utc_us, 3);
}
std::string latitude_text(const Fix& fix) {
  return decimal(fix.latitude_deg, DEGREE_DECIMALS);
}
std::string longitude_text(const Fix& fix) {
  return decimal(fix.longitude_deg, DEGREE_DECIMALS);
}

std::string property(const Fix& fix, std::string_view name) {
  for (const auto& property : properties()) {
    if (property.name == name) return property.text(fix);
  }
  return {};
}

/// A table of RFC 4180. No value needs quotes: they all are numbers, times and words.
class Csv final : public TrackFormat {
 public:
  Piece begin() override {
    std::string header = "time_utc,latitude_deg,longitude_deg";
    for (const auto& property : properties()) header.append(",").append(property.name);
    return {header + ",segment\r\n", ""};
  }
  Piece add(const Fix& fix, unsigned segment) override {
    std::string row = time_text(fix) + "," + latitude_text(fix) + "," + longitude_text(fix);
    for (const auto& property : properties()) row.append(",").append(property.text(fix));
    return {row + "," + std::to_string(segment) + "\r\n", ""};
  }
};

/// GPX 1.1. It has no element for accuracy, speed and course.
class Gpx final : public TrackFormat {
 public:
  Piece begin() override {
    return {R"(<?xml version="1.0" encoding="UTF-8"?>
<gpx version="1.1" creator="satnav-tap" xmlns="http://www.topografix.com/GPX/1/1">
<trk>
)",
            END};
  }
  Piece add(const Fix& fix, unsigned segment) override {
    std::string out;
    if (segment != m_segment) out = m_segment == 0 ? "<trkseg>\n" : "</trkseg>\n<trkseg>\n";
    m_segment = segment;
    out.append(text("<trkpt lat=\"", latitude_text(fix), "\" lon=\"", longitude_text(fix), "\">"));
    for (const auto& [element, name] : ELEMENTS) {
      const std::string value = name.empty() ? time_text(fix) : property(fix, name);
      if (!value.empty()) out.append(text('<', element, '>', value, "</", element, '>'));
    }
    return {out + "</trkpt>\n", std::string("</trkseg>\n") + END};
  }

 private:
  struct Element {
    std::string_view element;
    std::string_view name;  // of the property; empty for the time
  };
  // The schema demands this order.
  static constexpr Element ELEMENTS[] = {{"ele", "altitude_m"}, {"time", ""},     {"fix", "fix"},
                                         {"sat", "satellites"}, {"hdop", "hdop"}, {"vdop", "vdop"},
                                         {"pdop", "pdop"}};
  static constexpr const char* END = "</trk>\n</gpx>\n";

  unsigned m_segment = 0;
};

/// KML 2.2 without extensions: a folder a segment, with a dated point a fix and the line through them.
class Kml final : public TrackFormat {
 public:
  Piece begin() override {
    return {R"(<?xml version="1.0" encoding="UTF-8"?>
<kml xmlns="http://www.opengis.net/kml/2.2">
<Document>
<name>satnav-tap</name>
<Style id="fix"><IconStyle><scale>0.4</scale></IconStyle></Style>
<Style id="track"><LineStyle><color>ff0000ff</color><width>3</width></LineStyle></Style>
)",
            END};
  }
  Piece add(const Fix& fix, unsigned segment) override {
    std::string out;
    if (segment != m_segment) {
      if (m_segment != 0) out = line() + "</Folder>\n";
      out.append("<Folder>\n<name>Segment " + std::to_string(segment) + "</name>\n");
      m_points.clear();
    } else if (m_points.size() == LONGEST_LINE) {
      out = line();
      m_points.erase(m_points.begin(), m_points.end() - 1);
    }
    m_segment = segment;
    m_points.push_back(coordinates(fix));
    return {out + point(fix), line() + "</Folder>\n" + END};
  }

 private:
  static constexpr const char* END = "</Document>\n</kml>\n";
  // The line being drawn is part of the tail, so it must not become long: the next one goes on at its end.
  static constexpr size_t LONGEST_LINE = 100;

  static std::string coordinates(const Fix& fix) {
    const std::string altitude = property(fix, "altitude_m");
    return longitude_text(fix) + "," + latitude_text(fix) + (altitude.empty() ? "" : "," + altitude);
  }
  static std::string point(const Fix& fix) {
    std::string data;
    for (const auto& property : properties()) {
      const std::string value = property.text(fix);
      if (!value.empty())
        data.append(text("<Data name=\"", property.name, "\"><value>", value, "</value></Data>"));
    }
    if (!data.empty()) data = "<ExtendedData>" + data + "</ExtendedData>";
    return "<Placemark><TimeStamp><when>" + time_text(fix) + "</when></TimeStamp><styleUrl>#fix</styleUrl>" +
           data + "<Point><coordinates>" + coordinates(fix) + "</coordinates></Point></Placemark>\n";
  }
  /// Returns the line through the latest points; empty if there is only one.
  [[nodiscard]] std::string line() const {
    if (m_points.size() < 2) return {};
    std::string out =
        "<Placemark><styleUrl>#track</styleUrl><LineString><tessellate>1</tessellate><coordinates>\n";
    for (const auto& point : m_points) out.append(point).append("\n");
    return out + "</coordinates></LineString></Placemark>\n";
  }

  unsigned m_segment = 0;
  std::vector<std::string> m_points;  // coordinates
};

template <typename Format>
std::unique_ptr<TrackFormat> make() {
  return std::make_unique<Format>();
}

struct NamedFormat {
  const char* name;
  std::unique_ptr<TrackFormat> (*make)();
};
constexpr NamedFormat FORMATS[] = {{"csv", make<Csv>}, {"gpx", make<Gpx>}, {"kml", make<Kml>}};

}  // namespace

std::vector<std::string> track_formats() {
  std::vector<std::string> out;
  for (const auto& format : FORMATS) out.emplace_back(format.name);
  return out;
}

std::unique_ptr<TrackFormat> track_format(std::string_view name) {
  for (const auto& format : FORMATS) {
    if (name == format.name) return format.make();
  }
  return nullptr;
}

}  // namespace ecu::koru::tap
