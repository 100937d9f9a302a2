#include "tools/tap/Metrics.h"

#include <array>
#include <charconv>

#include "platform/base/Logging.h"
#include "tools/tap/Fields.h"

namespace ecu::koru::tap {

namespace {

using logging::text;

constexpr double NS_PER_S = 1e9;

std::string number(double value) {
  std::array<char, 32> out{};
  const auto [end, error] = std::to_chars(out.data(), out.data() + out.size(), value);
  return {out.data(), error == std::errc{} ? end : out.data()};
}
std::string number(uint64_t value) {
  return std::to_string(value);
}

/// Returns {name="value"}, escaped as the format wants it.
std::string label(std::string_view name, std::string_view value) {
  std::string out = text("{", name, "=\"");
  for (const char c : safe_text(value)) {
    if (c == '\\' || c == '"') out.push_back('\\');
    out.append(c == '\n' ? "\\n" : std::string(1, c));
  }
  return out.append("\"}");
}

/// Builds the text: for each metric its HELP and TYPE lines and then its samples.
class Exposition {
 public:
  void head(std::string_view name, std::string_view type, std::string_view help) {
    m_name = name;
    m_text.append(text("# HELP ", name, " ", help, "\n# TYPE ", name, " ", type, "\n"));
  }
  template <typename T>
  void sample(T value, const std::string& labels = {}) {
    m_text.append(text(m_name, labels, " ", number(value), "\n"));
  }
  template <typename T>
  void counter(std::string_view name, std::string_view help, T value) {
    head(name, "counter", help);
    sample(value);
  }
  void gauge(std::string_view name, std::string_view help, const std::optional<double>& value) {
    if (!value) return;
    head(name, "gauge", help);
    sample(*value);
  }
  /// Appends a sample of the present metric with something after its name.
  template <typename T>
  void suffixed(std::string_view suffix, T value) {
    m_text.append(text(m_name, suffix, " ", number(value), "\n"));
  }
  [[nodiscard]] std::string take() { return std::move(m_text); }

 private:
  std::string m_text;
  std::string m_name;
};

std::optional<double> seconds(const std::optional<uint64_t>& ns) {
  return ns ? std::optional(static_cast<double>(*ns) / NS_PER_S) : std::nullopt;
}

void add_messages(Exposition& out, const Figures& figures) {
  out.gauge("satnav_tap_listening_seconds", "How long satnav-tap has listened.", seconds(figures.length_ns));
  out.counter("satnav_tap_messages_total", "Messages of the bus that satnav-tap has seen.", figures.messages);
  out.counter("satnav_tap_undecodable_messages_total", "Messages of a known topic that could not be decoded.",
              figures.undecodable);
  out.counter("satnav_tap_unknown_messages_total", "Messages of a topic for which no message type is known.",
              figures.unknown);
}

void add_fixes(Exposition& out, const Figures& figures) {
  static constexpr std::array<const char*, Figures::STATUSES> NAMES = {"none", "nothing_known", "warning",
                                                                       "valid"};
  out.head("satnav_fixes_total", "counter", "Positions published, by their status.");
  for (size_t status = 0; status < NAMES.size(); ++status)
    out.sample(figures.status[status], label("status", NAMES[status]));
  out.gauge("satnav_first_fix_seconds", "From the start of listening to the first valid fix.",
            seconds(figures.first_fix_ns));
  out.counter("satnav_fix_gaps_total", "Times of more than 1.5 s without a valid fix.", figures.gaps);
  out.counter("satnav_fix_gap_seconds_total", "All of these times together.",
              static_cast<double>(figures.gap_ns) / NS_PER_S);
  out.gauge("satnav_longest_fix_gap_seconds", "The longest of these times, 0 without one.",
            seconds(figures.longest_gap_ns));
}

void add_delay(Exposition& out, const Figures& figures) {
  out.head("satnav_fix_delay_seconds", "summary", "From the envelope's time stamp of a fix to its arrival.");
  if (figures.delay_median_s) out.sample(*figures.delay_median_s, label("quantile", "0.5"));
  if (figures.delay_99_s) out.sample(*figures.delay_99_s, label("quantile", "0.99"));
  out.suffixed("_sum", figures.delay_sum_s);
  out.suffixed("_count", figures.delays);
}

void add_scatter(Exposition& out, const Figures& figures) {
  out.gauge("satnav_position_cep50_meters", "Radius around the reference that holds half of the positions.",
            figures.cep50_m);
  out.gauge("satnav_position_cep95_meters", "Radius around the reference that holds 95 % of the positions.",
            figures.cep95_m);
}

void add_groups(Exposition& out, const Figures& figures) {
  if (!figures.has_groups()) return;
  out.head("satnav_can_groups_total", "counter", "Signal groups for the vehicle's buses.");
  for (size_t i = 0; i < FIX_GROUP_NAMES.size(); ++i)
    out.sample(figures.groups[i].count, label("group", FIX_GROUP_NAMES[i]));
  out.head("satnav_can_groups_missed_total", "counter", "Fixes without this signal group.");
  for (size_t i = 0; i < FIX_GROUP_NAMES.size(); ++i)
    out.sample(figures.groups[i].missed, label("group", FIX_GROUP_NAMES[i]));
}

/// A number of the health message: name, type and help of its metric, and how to read it.
struct HealthRow {
  const char* name;
  const char* type;
  const char* help;
  std::optional<double> (*read)(const pb::GnssHealth& health);
};

template <auto HAS, auto GET, int PER_UNIT = 1>
std::optional<double> read(const pb::GnssHealth& health) {
  if (!(health.*HAS)()) return std::nullopt;
  return static_cast<double>((health.*GET)()) / PER_UNIT;
}

using H = pb::GnssHealth;
constexpr HealthRow HEALTH_ROWS[] = {
    {"satnavd_uptime_seconds", "gauge", "Since the service started.",
     read<&H::has_uptime_ms, &H::uptime_ms, 1000>},
    {"satnavd_valid_fix_age_seconds", "gauge", "Since the last valid fix.",
     read<&H::has_valid_fix_age_ms, &H::valid_fix_age_ms, 1000>},
    {"satnavd_valid_fixes_total", "counter", "Positions published with status 3.",
     read<&H::has_fixes, &H::fixes>},
    {"satnavd_incomplete_epochs_total", "counter", "Epochs without their last sentence.",
     read<&H::has_incomplete_epochs, &H::incomplete_epochs>},
    {"satnavd_received_bytes_total", "counter", "Bytes from the receiver.",
     read<&H::has_bytes_received, &H::bytes_received>},
    {"satnavd_dropped_bytes_total", "counter", "Bytes that formed no sentence and no frame.",
     read<&H::has_bytes_dropped, &H::bytes_dropped>},
    {"satnavd_bad_sentences_total", "counter", "Sentences with a wrong checksum or form.",
     read<&H::has_bad_sentences, &H::bad_sentences>},
    {"satnavd_bad_frames_total", "counter", "UBX frames with a wrong checksum.",
     read<&H::has_bad_frames, &H::bad_frames>},
    {"satnavd_device_reopenings_total", "counter", "Reopenings of the receiver's device.",
     read<&H::has_reopenings, &H::reopenings>},
    {"satnavd_refused_commands_total", "counter", "Refusals of the receiver (ACK-NAK).",
     read<&H::has_naks, &H::naks>},
    {"satnavd_messages_sent_total", "counter", "Messages handed to the broker.",
     read<&H::has_messages_sent, &H::messages_sent>},
    {"satnavd_messages_dropped_total", "counter", "Messages that the broker did not get.",
     read<&H::has_messages_dropped, &H::messages_dropped>},
    {"satnavd_broker_reconnects_total", "counter", "Reconnects to the broker.",
     read<&H::has_reconnects, &H::reconnects>},
    {"satnavd_port_baud", "gauge", "Speed of the receiver's port, bit/s.",
     read<&H::has_baud_rate, &H::baud_rate>},
    {"satnavd_wanted_systems", "gauge", "1 GPS, 2 GLONASS, 4 BeiDou, 8 Galileo, added up.",
     read<&H::has_wanted_systems, &H::wanted_systems>},
    {"satnavd_enabled_systems", "gauge", "The same, as the receiver reports.",
     read<&H::has_enabled_systems, &H::enabled_systems>},
    {"satnavd_antenna_status", "gauge", "0 not reported, 1 unknown, 2 OK, 3 short circuit, 4 open.",
     read<&H::has_antenna_status, &H::antenna_status>},
};

void add_state(Exposition& out, const pb::GnssHealth& health) {
  out.head("satnavd_state", "gauge", "1 for the present state of the service, 0 for the others.");
  for (int state = pb::GnssHealth::State_MIN; state <= pb::GnssHealth::State_MAX; ++state) {
    if (!pb::GnssHealth::State_IsValid(state)) continue;
    const auto& name = pb::GnssHealth::State_Name(static_cast<pb::GnssHealth::State>(state));
    out.sample(uint64_t{health.has_state() && health.state() == state}, label("state", name));
  }
  if (!health.has_version()) return;
  out.head("satnavd_build_info", "gauge", "Always 1; the label is the version of the service.");
  out.sample(uint64_t{1}, label("version", health.version()));
}

void add_health(Exposition& out, const Health& health) {
  out.gauge("satnavd_health_age_seconds", "Since the newest health message came.", health.age_s);
  add_state(out, health.message);
  for (const auto& row : HEALTH_ROWS) {
    const auto value = row.read(health.message);
    if (!value) continue;
    out.head(row.name, row.type, row.help);
    out.sample(*value);
  }
}

}  // namespace

std::string metrics_text(const Figures& figures, const std::optional<Health>& health,
                         std::optional<bool> connected) {
  Exposition out;
  if (connected)
    out.gauge("satnav_tap_broker_connected", "1 while satnav-tap is connected to the broker, else 0.",
              *connected ? 1 : 0);
  add_messages(out, figures);
  add_fixes(out, figures);
  add_delay(out, figures);
  add_scatter(out, figures);
  add_groups(out, figures);
  if (health) add_health(out, *health);
  return out.take();
}

}  // namespace ecu::koru::tap
