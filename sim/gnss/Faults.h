#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ecu::koru::sim {

/// What goes wrong on purpose.
struct FaultOptions {
  double drop = 0;     ///< share of the sentences that are not sent, 0 to 1
  double corrupt = 0;  ///< share of the sentences in which one byte becomes another
  double split = 0;    ///< share of the sentences with a pause of 20 to 150 ms in the middle
  double silence_s =
      0;  ///< of every silence_every_s since power-on the last silence_s seconds nothing is sent
  double silence_every_s = 0;
  uint64_t seed = 1;
};

/// "drop=P,corrupt=P,split=P,silence=SECONDS@EVERY,seed=N", any of them in any order. Throws
/// std::invalid_argument with a text for the user when a fault is unknown, given twice or out of its range.
[[nodiscard]] FaultOptions parse_faults(std::string_view text);

/// Decides sentence by sentence. The same seed and the same number of sentences give the same faults, and the
/// rate of one fault does not move the others.
class Faults {
 public:
  explicit Faults(const FaultOptions& options) : m_options(options), m_state(options.seed) {}

  struct Verdict {
    bool dropped = false;
    bool corrupted = false;
    size_t pause_before = 0;  ///< index of the byte that comes late; 0: none
    int64_t pause_us = 0;
  };
  /// Treats one sentence, which is not empty; a corrupted byte is changed in place.
  [[nodiscard]] Verdict apply(std::string& sentence);
  /// Whether an epoch that long after power-on falls into a silence.
  [[nodiscard]] bool silent_at(int64_t since_power_on_us) const;

 private:
  uint64_t draw();
  [[nodiscard]] bool hit(double share);
  [[nodiscard]] uint64_t below(uint64_t limit) { return draw() % limit; }

  FaultOptions m_options;
  uint64_t m_state;
};

}  // namespace ecu::koru::sim
