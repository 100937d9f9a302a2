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

struct FaultOptions {
  double drop = 0;             ///< share of the sentences that are not sent, 0 to 1
  double corrupt = 0;          ///< share of the sentences in which one byte becomes another
  double split = 0;            ///< share of the sentences with a pause of 20 to 150 ms in the middle
  double silence_s = 0;        ///< sends nothing in the last so many s of every silence_every_s
  double silence_every_s = 0;  ///< from power-on
  uint64_t seed = 1;

  bool mute = false;       ///< hears no commands, but sends sentences
  bool nak_all = false;    ///< refuses every command of any class
  std::vector<UbxId> nak;  ///< refuses these commands
  int64_t late_us = 0;     ///< delays answers by that time
  double lose = 0;         ///< share of the answer messages that are not sent
  /// A frame with a correct checksum and random class, id and payload follows this share of the sentences,
  /// and replaces this share of the answers.
  double garbage_ubx = 0;
  /// A receiver of the next generation: it refuses CFG-GNSS, CFG-NAV5, CFG-NMEA, CFG-RXM and CFG-ANT and has
  /// no MON-HW. Ports, messages, rate, saving and reset are as before.
  bool newer = false;
  std::vector<double> power_cycles_s;  ///< since power-on
  /// The options' settings, and settings saved only in battery-backed memory, do not survive a power cycle.
  /// The receiver then has its factory settings and this speed.
  std::optional<unsigned> reset_to;
  struct AntennaChange {
    AntennaState state;
    double at_s;  ///< since power-on
  };
  std::vector<AntennaChange> antenna;
};

/// Parses a comma list of these, in any order: drop=P, corrupt=P, split=P, silence=SECONDS@EVERY, seed=N,
/// mute, nak=CLASSID, nak=all, late=MS, lose=P, newer, garbage-ubx=P, power-cycle@T, reset-to=BAUD,
/// antenna=ok|open|short[@T]. Only nak, power-cycle and antenna may be repeated. Throws std::invalid_argument
/// with a text for the user if a fault is unknown, given twice or out of range.
[[nodiscard]] FaultOptions parse_faults(std::string_view text);

/// Returns a share of 0 to 1. Throws std::invalid_argument with a text for the user otherwise.
[[nodiscard]] double parse_share(std::string_view text);

/// Random numbers. A seed gives the same numbers on every machine and compiler.
class Random {
 public:
  explicit Random(uint64_t seed) : m_state(seed) {}
  uint64_t draw();
  /// Returns true with that probability. Always uses up one number.
  [[nodiscard]] bool hit(double share) { return static_cast<double>(draw() >> 11U) * 0x1p-53 < share; }
  [[nodiscard]] size_t below(size_t limit) { return static_cast<size_t>(draw() % limit); }

 private:
  uint64_t m_state;
};

/// Decides on each sentence. The same seed and the same number of sentences give the same faults, and the
/// rate of one sentence fault does not affect the others.
class Faults {
 public:
  explicit Faults(const FaultOptions& options)
      : m_options(options), m_random(options.seed), m_ubx_random(~options.seed) {}

  /// Changes a fault's share, 0 to 1, from the next decision on.
  void set_share(double FaultOptions::*fault, double share) { m_options.*fault = share; }

  struct Verdict {
    bool dropped = false;
    bool corrupted = false;
    size_t pause_before = 0;  ///< index of the byte before which there is a pause; 0: none
    int64_t pause_us = 0;
  };
  /// Decides on one sentence, which must not be empty. A corrupted byte is changed in place.
  [[nodiscard]] Verdict apply(std::string& sentence);
  /// Returns true if an epoch that long after power-on falls into a silence.
  [[nodiscard]] bool silent_at(int64_t since_power_on_us) const;

  [[nodiscard]] bool loses_answer() { return m_ubx_random.hit(m_options.lose); }
  /// Returns the random frame that follows the sentence or replaces the answer; empty if nothing does.
  [[nodiscard]] std::optional<UbxFrame> garbage();

 private:
  FaultOptions m_options;
  Random m_random;
  Random m_ubx_random;  // separate, so that the faults of sentences do not depend on answers
};

}  // namespace ecu::koru::sim
