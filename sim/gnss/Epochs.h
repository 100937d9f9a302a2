#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/gnss/Fix.h"
#include "sim/gnss/ReceiverOptions.h"

namespace ecu::koru::sim {

/// The sentences of an epoch, which the receiver sends in one burst. Times are us of the caller's clock.
struct Burst {
  int64_t start_us = 0;
  /// A sentence that would not be finished by then is not sent. INT64_MAX: everything is sent, however late.
  int64_t deadline_us = INT64_MAX;
  int64_t since_power_on_us = 0;
  std::vector<std::string> sentences;
  std::optional<Fix> fix{};  ///< the content of the sentences; empty for a recording
};

/// A simulated drive or a recording.
class IBurstSource {
 public:
  virtual ~IBurstSource() = default;
  /// Returns the start of the burst that take() returns next; INT64_MAX after the last one.
  [[nodiscard]] virtual int64_t next_start_us() const = 0;
  [[nodiscard]] virtual Burst take() = 0;
};

/// The times of the solutions: `count` of them in every `period_ms` of UTC since 1970, at whole ms.
struct EpochGrid {
  int64_t period_ms = 1000;
  int64_t count = 1;
  bool operator==(const EpochGrid&) const = default;

  /// Returns the n-th epoch, us since 1970.
  [[nodiscard]] int64_t epoch_us(int64_t n) const {
    return (n / count * period_ms + n % count * period_ms / count) * 1000;
  }
  /// Returns the first n whose epoch is at or after `utc_us`.
  [[nodiscard]] int64_t first_from(int64_t utc_us) const;
};

/// The bursts of a drive along a route. At the rate of the options, epochs are at floor(k * 1000 / rate) ms
/// of every UTC second, k = 0, 1 ...; the first one is at or after power-on.
class DriveSource final : public IBurstSource {
 public:
  struct Output {
    SentenceOptions sentences;
    SentenceSet kinds;
    bool receives = true;  ///< false: no satellites, so no fix
  };

  /// `options` must be checked already and must outlive the source.
  DriveSource(const ReceiverOptions& options, const EpochGrid& grid);

  [[nodiscard]] int64_t next_start_us() const override { return burst_start_us(m_epoch); }
  [[nodiscard]] Burst take() override;

  /// Applies to the following bursts.
  void set_output(const Output& output) { m_output = output; }
  /// Changes the epochs from that time of the caller's clock on.
  void set_grid(const EpochGrid& grid, int64_t now_us);
  /// Skips the epochs before that time.
  void skip_to(int64_t now_us);

 private:
  /// Returns the fix at that time. Depends only on the time, the options and the systems in use.
  [[nodiscard]] Fix truth_at(int64_t utc_us) const;
  [[nodiscard]] int64_t burst_start_us(int64_t epoch) const;
  [[nodiscard]] int64_t utc_at(int64_t now_us) const {
    return now_us - m_options.start_us + m_options.utc_start_us;
  }

  const ReceiverOptions& m_options;
  EpochGrid m_grid;
  Output m_output;
  int64_t m_epoch;               // of the next burst
  int64_t m_latest_utc_us = -1;  // epoch of the latest burst
};

}  // namespace ecu::koru::sim
