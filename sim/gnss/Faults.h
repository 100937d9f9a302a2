#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/gnss/Antenna.h"
#include "sim/gnss/UbxFrame.h"

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

  bool mute = false;       ///< hears no command; sentences go on
  bool nak_all = false;    ///< refuses every command, of whatever class
  std::vector<UbxId> nak;  ///< refuses these
  int64_t late_us = 0;     ///< answers come so much later
  double lose = 0;         ///< share of the answers, message by message, that are not sent
  /// Share of the sentences behind which, and of the answers instead of which, comes a frame with a right
  /// checksum and random class, id and payload.
  double garbage_ubx = 0;
  /// A receiver of the following generation: CFG-GNSS, CFG-NAV5, CFG-NMEA, CFG-RXM and CFG-ANT are refused
  /// and MON-HW does not exist; ports, messages, rate, saving and reset are as before.
  bool newer = false;
  std::vector<double> power_cycles_s;  ///< since power-on
  /// The options' settings, and what is saved in battery-backed memory alone, do not survive a power cycle:
  /// the receiver is then one from the factory, at this speed.
  std::optional<unsigned> reset_to;
  struct AntennaChange {
    AntennaState state;
    double at_s;  ///< since power-on
  };
  std::vector<AntennaChange> antenna;
};

/// "drop=P,corrupt=P,split=P,silence=SECONDS@EVERY,seed=N,mute,nak=CLASSID,nak=all,late=MS,lose=P,newer,
/// garbage-ubx=P,power-cycle@T,reset-to=BAUD,antenna=ok|open|short[@T]", any of them in any order; nak,
/// power-cycle and antenna also more than once. Throws std::invalid_argument with a text for the user when a
/// fault is unknown, given twice or out of its range.
[[nodiscard]] FaultOptions parse_faults(std::string_view text);

/// Numbers that are the same for a seed on every machine and compiler.
class Random {
 public:
  explicit Random(uint64_t seed) : m_state(seed) {}
  uint64_t draw();
  /// True with that probability; always takes one number.
  [[nodiscard]] bool hit(double share) { return static_cast<double>(draw() >> 11U) * 0x1p-53 < share; }
  [[nodiscard]] size_t below(size_t limit) { return static_cast<size_t>(draw() % limit); }

 private:
  uint64_t m_state;
};

/// Decides sentence by sentence. The same seed and the same number of sentences give the same faults, and the
/// rate of one fault does not move the others.
class Faults {
 public:
  explicit Faults(const FaultOptions& options)
      : m_options(options), m_random(options.seed), m_ubx_random(~options.seed) {}

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

  /// Whether an answer gets lost.
  [[nodiscard]] bool loses_answer() { return m_ubx_random.hit(m_options.lose); }
  /// The random frame that comes behind a sentence or instead of an answer, if one does.
  [[nodiscard]] std::optional<UbxFrame> garbage();

 private:
  FaultOptions m_options;
  Random m_random;
  Random m_ubx_random;  // its own, so that the faults of sentences do not depend on answers
};

}  // namespace ecu::koru::sim
