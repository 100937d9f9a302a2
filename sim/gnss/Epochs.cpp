#include "sim/gnss/Epochs.h"

#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {

DriveSource::DriveSource(const ReceiverOptions& options)
    : m_options(options), m_epoch(options.utc_start_us / second_us * options.rate_hz) {
  while (epoch_utc_us(m_epoch) < options.utc_start_us) ++m_epoch;
}

int64_t DriveSource::epoch_utc_us(int64_t epoch) const {
  return epoch / m_options.rate_hz * second_us + epoch % m_options.rate_hz * 1000 / m_options.rate_hz * 1000;
}

int64_t DriveSource::burst_start_us(int64_t epoch) const {
  return m_options.start_us + epoch_utc_us(epoch) - m_options.utc_start_us + m_options.output_delay_us;
}

Burst DriveSource::take() {
  const int64_t utc_us = epoch_utc_us(m_epoch);
  Burst burst{burst_start_us(m_epoch), burst_start_us(m_epoch + 1), utc_us - m_options.utc_start_us,
              epoch_sentences(truth_at(utc_us), m_options.sentences)};
  ++m_epoch;
  return burst;
}

Fix DriveSource::truth_at(int64_t utc_us) const {
  Fix fix;
  fix.utc_us = utc_us;
  fix.valid = !m_options.no_fix;
  if (!fix.valid) return fix;
  const RouteState state =
      m_options.route.at(static_cast<double>(utc_us - m_options.utc_start_us) / second_us);
  fix.latitude_deg = state.position.latitude_deg;
  fix.longitude_deg = state.position.longitude_deg;
  fix.altitude_m = state.position.altitude_m;
  fix.speed_kmh = state.speed_ms * 3.6;
  fix.course_deg = state.course_deg;
  describe_quality(fix, m_options.sentences.constellations);
  return fix;
}

}  // namespace ecu::koru::sim
