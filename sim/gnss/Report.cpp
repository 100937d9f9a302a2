#include "sim/gnss/Report.h"

#include <algorithm>
#include <iostream>

#include "sim/gnss/Files.h"
#include "sim/gnss/Text.h"
#include "sim/gnss/UbxText.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

std::string text_of(const Fix& fix) {
  if (!fix.valid) return "no fix";
  return decimal(fix.latitude_deg, 7) + ' ' + decimal(fix.longitude_deg, 7) + ' ' +
         decimal(fix.speed_kmh, 3) + " km/h " +
         (fix.course_deg ? decimal(*fix.course_deg, 2) + " deg " : "no course ") +
         decimal(fix.altitude_m, 1) + " m accuracy " +
         decimal(std::max(fix.latitude_error_m, fix.longitude_error_m), 1) + " m, " +
         std::to_string(fix.satellites) + " satellites";
}

}  // namespace

Report::Report(const Options& options) : m_trace_name(options.ubx_trace), m_show(options.show) {
  if (options.ubx_trace.empty()) return;
  m_trace = &std::cout;
  if (options.ubx_trace == "-") return;
  m_file = create_file(options.ubx_trace);
  m_trace = &m_file;
}

void Report::write(int64_t at_us, std::string_view text) {
  if (m_trace == nullptr) return;
  const int64_t since_us = at_us - m_start_us;
  std::string line = "+" + std::to_string(since_us / SECOND_US) + "." + zero_padded(since_us % SECOND_US, 6);
  write_line(*m_trace, m_trace_name, line.append(" ").append(text));
}

void Report::on_command(int64_t at_us, const UbxFrame& frame, bool intact) {
  write(at_us, "host> " + std::string(intact ? "" : "WRONG CHECKSUM ") + describe(frame));
}

void Report::on_message(int64_t at_us, const UbxFrame& frame) {
  write(at_us, "<recv " + describe(frame));
}

void Report::on_event(int64_t at_us, std::string_view text) {
  write(at_us, "-- " + std::string(text));
}

void Report::on_epoch(int64_t /*at_us*/, const Fix& fix) {
  if (m_show) write_line(std::cout, "-", iso8601(fix.utc_us) + ' ' + text_of(fix));
}

}  // namespace ecu::koru::sim
