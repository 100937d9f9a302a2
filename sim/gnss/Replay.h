#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sim/gnss/Epochs.h"
#include "sim/gnss/ReceiverOptions.h"

namespace ecu::koru::sim {

/// A recorded byte log, cut into epochs. An epoch begins with an RMC sentence of any talker. Bytes before the
/// first RMC belong to the first epoch. No byte is changed.
class Recording {
 public:
  struct Epoch {
    size_t begin, end;  ///< offsets of its bytes
    int64_t offset_us;  ///< since the first epoch, from the times in the RMC sentences
  };

  /// `name` is for the error text. Throws FileError if the bytes hold no RMC sentence.
  Recording(std::string bytes, const std::string& name);

  [[nodiscard]] const std::vector<Epoch>& epochs() const { return m_epochs; }
  [[nodiscard]] std::string_view bytes_of(const Epoch& epoch) const {
    return std::string_view(m_bytes).substr(epoch.begin, epoch.end - epoch.begin);
  }
  /// Returns the time from the first epoch to the start of a repetition.
  [[nodiscard]] int64_t duration_us() const { return m_duration_us; }

 private:
  void cut();
  void place_in_time();

  std::string m_bytes;
  std::vector<Epoch> m_epochs;
  int64_t m_duration_us = 0;
};

/// The bursts of a recording. If the line is too slow they are late, but none is left out.
class ReplaySource final : public IBurstSource {
 public:
  /// `options` must hold a recording, be checked already and outlive the source.
  explicit ReplaySource(const ReceiverOptions& options) : m_options(options) {}

  [[nodiscard]] int64_t next_start_us() const override;
  [[nodiscard]] Burst take() override;

 private:
  /// Returns the time since power-on, us.
  [[nodiscard]] int64_t next_offset_us() const;

  const ReceiverOptions& m_options;
  size_t m_next = 0;
  int64_t m_rounds = 0;
};

}  // namespace ecu::koru::sim
