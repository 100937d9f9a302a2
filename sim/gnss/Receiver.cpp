#include "sim/gnss/Receiver.h"

#include <algorithm>
#include <stdexcept>

#include "sim/gnss/Epochs.h"
#include "sim/gnss/Replay.h"

namespace ecu::koru::sim {
namespace {

constexpr int64_t ns_per_us = 1000;

/// To ns, where INT64_MAX stays "never".
int64_t to_ns(int64_t us) {
  return us == INT64_MAX ? INT64_MAX : us * ns_per_us;
}
/// To the first whole us at which `ns` has passed.
int64_t to_us(int64_t ns) {
  return ns == INT64_MAX ? INT64_MAX : (ns + ns_per_us - 1) / ns_per_us;
}

void require(bool holds, const char* text) {
  if (!holds) throw std::invalid_argument(text);
}

const ReceiverOptions& checked(const ReceiverOptions& options) {
  require(options.rate_hz >= 1 && options.rate_hz <= 10, "the rate is not within 1 to 10 Hz");
  require(std::find(receiver_bauds.begin(), receiver_bauds.end(), options.baud) != receiver_bauds.end(),
          "a receiver does not know this baud rate");
  require(options.start_us >= 0 && options.utc_start_us >= 0, "a time is negative");
  require(options.output_delay_us >= 0, "the delay of the output is negative");
  require(options.replay_speed >= 0.01 && options.replay_speed <= 1000,
          "the speed of the replay is not within 0.01 to 1000");
  auto systems = options.sentences.constellations;
  std::sort(systems.begin(), systems.end());
  require(!systems.empty(), "no constellation");
  require(std::adjacent_find(systems.begin(), systems.end()) == systems.end(),
          "a constellation is given twice");
  return options;
}

}  // namespace

Receiver::Receiver(const ReceiverOptions& options)
    : m_options(checked(options)), m_faults(options.faults), m_line(options.baud) {
  if (m_options.recording) {
    m_source = std::make_unique<ReplaySource>(m_options);
  } else {
    auto drive = std::make_unique<DriveSource>(m_options);
    m_drive = drive.get();
    m_source = std::move(drive);
  }
}

Receiver::~Receiver() = default;

void Receiver::advance_to(int64_t now_us) {
  while (next_burst_us() <= now_us) begin_burst();
  m_line.advance_to(to_ns(now_us));
}

int64_t Receiver::next_burst_us() const {
  const int64_t start_us = m_source->next_start_us();
  if (!m_options.recording || start_us == INT64_MAX) return start_us;
  return std::max(start_us, to_us(m_line.free_ns()));
}

void Receiver::begin_burst() {
  // What was sent before must have left the line, so that memory does not grow in a long step.
  m_line.advance_to(to_ns(next_burst_us()));
  Burst burst = m_source->take();
  ++m_statistics.epochs;
  if (m_drive != nullptr) m_latest_epoch_us = m_options.utc_start_us + burst.since_power_on_us;
  if (m_faults.silent_at(burst.since_power_on_us)) {
    ++m_statistics.silent_epochs;
    return;
  }
  for (std::string& sentence : burst.sentences)
    send_sentence(sentence, to_ns(burst.start_us), to_ns(burst.deadline_us));
}

void Receiver::send_sentence(std::string& sentence, int64_t start_ns, int64_t deadline_ns) {
  const Faults::Verdict verdict = m_faults.apply(sentence);
  if (verdict.dropped) {
    ++m_statistics.sentences_dropped;
    return;
  }
  if (std::max(start_ns, m_line.free_ns()) > deadline_ns - m_line.duration_ns(sentence.size())) {
    ++m_statistics.sentences_overrun;
    return;
  }
  ++m_statistics.sentences_sent;
  m_statistics.sentences_corrupted += verdict.corrupted;
  m_statistics.sentences_split += verdict.pause_us > 0;
  const std::string_view text = sentence;
  m_line.send(text.substr(0, verdict.pause_before), start_ns);
  if (verdict.pause_us > 0) start_ns = m_line.free_ns() + to_ns(verdict.pause_us);
  m_line.send(text.substr(verdict.pause_before), start_ns);
}

int64_t Receiver::next_byte_us() const {
  if (const int64_t sending = m_line.next_byte_ns(); sending != INT64_MAX) return to_us(sending);
  const int64_t start_us = next_burst_us();
  return start_us == INT64_MAX ? INT64_MAX : to_us(to_ns(start_us) + m_line.duration_ns(1));
}

int64_t Receiver::run_end_us() const {
  return to_us(m_line.run_end_ns());
}

std::optional<Fix> Receiver::truth_at(int64_t utc_us) const {
  return m_drive != nullptr ? std::optional(m_drive->truth_at(utc_us)) : std::nullopt;
}

Statistics Receiver::statistics() const {
  Statistics result = m_statistics;
  result.bytes_sent = m_line.bytes_sent();
  result.bytes_lost = m_line.bytes_lost();
  return result;
}

}  // namespace ecu::koru::sim
