#pragma once

#include "sim/gnss/Bursts.h"
#include "sim/gnss/Fix.h"
#include "sim/gnss/ReceiverOptions.h"

namespace ecu::koru::sim {

/// When solutions are computed: `count` of them in every `period_ms` of UTC since 1970, in steps of whole ms.
struct EpochGrid {
  int64_t period_ms = 1000;
  int64_t count = 1;
  bool operator==(const EpochGrid&) const = default;

  /// The n-th epoch since 1970, us.
  [[nodiscard]] int64_t epoch_us(int64_t n) const {
    return (n / count * period_ms + n % count * period_ms / count) * 1000;
  }
  /// The first n whose epoch is at or after `utc_us`.
  [[nodiscard]] int64_t first_from(int64_t utc_us) const;
};

/// The bursts of a drive along a route. With a rate from the options epochs lie at floor(k * 1000 / rate) ms
/// of every UTC second, k = 0, 1 ...; the first one is at or after power-on.
class DriveSource final : public IBurstSource {
 public:
  /// What a burst says of its epoch.
  struct Output {
    SentenceOptions sentences;
    SentenceSet kinds;
    bool receives = true;  ///< satellites
  };

  /// `options` must outlive it and is already checked.
  DriveSource(const ReceiverOptions& options, const EpochGrid& grid);

  [[nodiscard]] int64_t next_start_us() const override { return burst_start_us(m_epoch); }
  [[nodiscard]] Burst take() override;

  /// Of the bursts to come.
  void set_output(const Output& output) { m_output = output; }
  /// Other epochs from that time of the caller's clock on.
  void set_grid(const EpochGrid& grid, int64_t now_us);
  /// Leaves out the epochs before that time.
  void skip_to(int64_t now_us);

  /// What the receiver finds out at a time while it receives: a pure function of it and of the systems in
  /// use.
  [[nodiscard]] Fix truth_at(int64_t utc_us) const;

 private:
  [[nodiscard]] int64_t burst_start_us(int64_t epoch) const;
  [[nodiscard]] int64_t utc_at(int64_t now_us) const {
    return now_us - m_options.start_us + m_options.utc_start_us;
  }

  const ReceiverOptions& m_options;
  EpochGrid m_grid;
  Output m_output;
  int64_t m_epoch;               // the next one
  int64_t m_latest_utc_us = -1;  // of the one before
};

}  // namespace ecu::koru::sim
