#include "sim/gnss/Epochs.h"

#include <algorithm>

#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {

int64_t EpochGrid::first_from(int64_t utc_us) const {
  int64_t n = utc_us / (period_ms * 1000) * count;
  while (epoch_us(n) < utc_us) ++n;
  return n;
}

DriveSource::DriveSource(const ReceiverOptions& options, const EpochGrid& grid)
    : m_options(options),
      m_grid(grid),
      m_output{options.sentences, {}},
      m_epoch(grid.first_from(options.utc_start_us)) {}

void DriveSource::set_grid(const EpochGrid& grid, int64_t now_us) {
  m_grid = grid;
  // This keeps an epoch whose burst has not begun yet.
  m_epoch = grid.first_from(std::max(m_latest_utc_us + 1, utc_at(now_us) - m_options.output_delay_us));
}

void DriveSource::skip_to(int64_t now_us) {
  m_epoch = m_grid.first_from(std::max(m_latest_utc_us + 1, utc_at(now_us)));
}

int64_t DriveSource::burst_start_us(int64_t epoch) const {
  return m_options.start_us + m_grid.epoch_us(epoch) - m_options.utc_start_us + m_options.output_delay_us;
}

Burst DriveSource::take() {
  m_latest_utc_us = m_grid.epoch_us(m_epoch);
  Fix fix = truth_at(m_latest_utc_us);
  if (!m_output.receives) {
    fix = {};
    fix.utc_us = m_latest_utc_us;
    fix.valid = false;
  }
  Burst burst{burst_start_us(m_epoch), burst_start_us(m_epoch + 1), m_latest_utc_us - m_options.utc_start_us,
              epoch_sentences(fix, m_output.sentences, m_output.kinds), fix};
  ++m_epoch;
  return burst;
}

Fix DriveSource::truth_at(int64_t utc_us) const {
  Fix fix;
  fix.utc_us = utc_us;
  fix.valid = !m_options.no_fix;
  if (!fix.valid) return fix;
  const RouteState state =
      m_options.route.at(static_cast<double>(utc_us - m_options.utc_start_us) / SECOND_US);
  fix.latitude_deg = state.position.latitude_deg;
  fix.longitude_deg = state.position.longitude_deg;
  fix.altitude_m = state.position.altitude_m;
  fix.speed_kmh = state.speed_ms * 3.6;
  fix.course_deg = state.course_deg;
  describe_quality(fix, m_output.sentences.constellations);
  return fix;
}

}  // namespace ecu::koru::sim
