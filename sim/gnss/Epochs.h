#pragma once

#include "sim/gnss/Bursts.h"
#include "sim/gnss/Fix.h"
#include "sim/gnss/ReceiverOptions.h"

namespace ecu::koru::sim {

/// The bursts of a drive along a route. Epochs lie at floor(k * 1000 / rate) ms of every UTC second, k = 0, 1
/// ...; the first one is at or after power-on.
class DriveSource final : public IBurstSource {
 public:
  /// `options` must outlive it and is already checked.
  explicit DriveSource(const ReceiverOptions& options);

  [[nodiscard]] int64_t next_start_us() const override { return burst_start_us(m_epoch); }
  [[nodiscard]] Burst take() override;

  /// What the receiver finds out at a time: a pure function of it.
  [[nodiscard]] Fix truth_at(int64_t utc_us) const;

 private:
  /// UTC of the n-th epoch since 1970, us.
  [[nodiscard]] int64_t epoch_utc_us(int64_t epoch) const;
  [[nodiscard]] int64_t burst_start_us(int64_t epoch) const;

  const ReceiverOptions& m_options;
  int64_t m_epoch;  // the next one
};

}  // namespace ecu::koru::sim
