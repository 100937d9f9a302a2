#include "sim/gnss/Receiver.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "sim/gnss/Epochs.h"
#include "sim/gnss/Replay.h"
#include "sim/gnss/Utc.h"

namespace ecu::koru::sim {
namespace {

constexpr int64_t NS_PER_US = 1000;
constexpr int64_t START_TIME_US = 300'000;       // from power-on until it runs
constexpr int64_t ANSWER_TIME_US = 4'000;        // from a command's last byte to the answer
constexpr uint8_t NOTHING_TO_SAY = 0xFF;         // filler byte on SPI
constexpr int64_t LONGEST_PAUSE_US = 1'000'000;  // then an incomplete command is dropped
constexpr size_t RECEIVER_KEEPS = 256;           // commands; more are dropped
constexpr size_t TRANSMITTER_KEEPS = 4096;  // bytes; answers beyond that are dropped, on SPI all messages

/// Converts to ns. INT64_MAX stays INT64_MAX, which means never.
int64_t to_ns(int64_t us) {
  return us == INT64_MAX ? INT64_MAX : us * NS_PER_US;
}
/// Converts to us, rounded up. INT64_MAX stays INT64_MAX.
int64_t to_us(int64_t ns) {
  return ns == INT64_MAX ? INT64_MAX : (ns + NS_PER_US - 1) / NS_PER_US;
}

void require(bool holds, const char* text) {
  if (!holds) throw std::invalid_argument(text);
}

void check_systems(const ReceiverOptions& options) {
  auto systems = options.sentences.constellations;
  std::sort(systems.begin(), systems.end());
  require(!systems.empty(), "no constellation");
  require(std::adjacent_find(systems.begin(), systems.end()) == systems.end(),
          "a constellation is given twice");
  require((monitor_map(systems) & ~static_cast<unsigned>(monitor_map(options.supported))) == 0,
          "a constellation is used and not supported");
}

const ReceiverOptions& checked(const ReceiverOptions& options) {
  require(options.rate_hz >= 1 && options.rate_hz <= 10, "the rate is not within 1 to 10 Hz");
  for (const unsigned baud : {options.baud, options.initial_baud, options.faults.reset_to.value_or(9600)})
    require(is_receiver_baud(baud), "a receiver does not know this baud rate");
  require(options.start_us >= 0 && options.utc_start_us >= 0, "a time is negative");
  require(options.output_delay_us >= 0, "the delay of the output is negative");
  require(!options.spi || !options.recording, "a recording is not played on SPI");
  require(options.replay_speed >= 0.01 && options.replay_speed <= 1000,
          "the speed of the replay is not within 0.01 to 1000");
  check_systems(options);
  return options;
}

int64_t seconds_to_us(double seconds) {
  return static_cast<int64_t>(seconds * SECOND_US);
}

}  // namespace

Receiver::Receiver(const ReceiverOptions& options)
    : m_options(checked(options)),
      m_control(m_options),
      m_grid(m_control.settings().grid(m_options.rate_hz)),
      m_faults(options.faults),
      m_line(m_options.recording ? options.baud : m_control.settings().baud()),
      m_now_us(options.start_us),
      m_mute(options.faults.mute) {
  if (m_options.recording) {
    m_source = std::make_unique<ReplaySource>(m_options);
    return;
  }
  auto drive = std::make_unique<DriveSource>(m_options, m_grid);
  m_drive = drive.get();
  m_source = std::move(drive);
  plan_incidents();
}

Receiver::~Receiver() = default;

void Receiver::plan_incidents() {
  for (const double at_s : m_options.faults.power_cycles_s)
    m_incidents.emplace(m_options.start_us + seconds_to_us(at_s), [this] { fail_power(); });
  for (const auto& change : m_options.faults.antenna)
    m_incidents.emplace(m_options.start_us + seconds_to_us(change.at_s),
                        [this, state = change.state] { set_antenna(state); });
}

void Receiver::advance_to(int64_t now_us) {
  while (next_event_us() <= now_us) carry_out_next();
  move_line_to(std::max(m_now_us, now_us));
}

void Receiver::tell(const std::string& event) const {
  if (m_observer != nullptr) m_observer->on_event(m_now_us, event);
}

void Receiver::move_line_to(int64_t now_us) {
  m_now_us = now_us;
  m_line.advance_to(to_ns(now_us));
  while (!m_sending.empty() && m_sending.front().end_ns <= to_ns(now_us)) {
    const Sending sent = std::move(m_sending.front());
    m_sending.pop_front();
    if (m_observer != nullptr) m_observer->on_message(to_us(sent.end_ns), sent.frame);
  }
}

int64_t Receiver::next_event_us() const {
  return std::min({next_incident_us(), m_start_us, next_command_byte_us(), m_new_speed_us, next_answer_us(),
                   next_burst_us()});
}

void Receiver::carry_out_next() {
  // Moves the line before each event, so that memory does not grow in a long step.
  move_line_to(std::max(m_now_us, next_event_us()));
  if (next_incident_us() <= m_now_us) {
    const auto incident = m_incidents.extract(m_incidents.begin());
    incident.mapped()();
  } else if (m_start_us <= m_now_us) {
    start();
  } else if (m_new_speed_us <= m_now_us) {
    change_speed();
  } else if (next_command_byte_us() <= m_now_us) {
    hear();
  } else if (next_answer_us() <= m_now_us) {
    send_answer();
  } else {
    begin_burst();
  }
}

// -- Commands

void Receiver::write(std::span<const uint8_t> bytes) {
  m_statistics.bytes_from_host += bytes.size();
  if (m_drive != nullptr) m_from_host.write(bytes, to_ns(m_now_us), m_line.host_baud());
}

void Receiver::transfer(std::span<const uint8_t> from_host, std::span<uint8_t> to_host) {
  update_tx_ready();
  const size_t count = m_line.read(to_host);
  std::fill(to_host.begin() + static_cast<std::ptrdiff_t>(count), to_host.end(), NOTHING_TO_SAY);
  m_statistics.bytes_from_host += from_host.size();
  hear(std::string_view(reinterpret_cast<const char*>(from_host.data()), from_host.size()));
}

void Receiver::update_tx_ready() {
  constexpr unsigned THRESHOLD_BIT = 7;
  constexpr size_t THRESHOLD_UNIT = 8;
  const size_t threshold = (m_control.settings().tx_ready() >> THRESHOLD_BIT) * THRESHOLD_UNIT;
  const size_t pending = m_line.available();
  if (pending == 0) m_tx_ready = false;
  if (pending > 0 && pending >= threshold) m_tx_ready = true;
}

bool Receiver::tx_ready_level() {
  constexpr unsigned ON = 1, ACTIVE_LOW = 2;
  const uint32_t mode = m_control.settings().tx_ready();
  if (!m_running || (mode & ON) == 0) return true;  // not driven but pulled up
  update_tx_ready();
  return m_tx_ready != ((mode & ACTIVE_LOW) != 0);
}

int64_t Receiver::next_command_byte_us() const {
  return to_us(m_from_host.next_ns());
}

int64_t Receiver::next_answer_us() const {
  if (m_answers.empty()) return INT64_MAX;
  const int64_t due_us = m_answers.front().due_us;
  return m_new_speed_us == INT64_MAX ? due_us : std::max(due_us, m_new_speed_us);
}

void Receiver::hear() {
  std::string bytes;
  m_from_host.take(to_ns(m_now_us), m_line.baud(), bytes);
  hear(bytes);
}

void Receiver::hear(std::string_view bytes) {
  if (!m_running) {
    if (m_woken_by_host) m_start_us = m_now_us + START_TIME_US;
    m_woken_by_host = false;
    return;
  }
  if (m_now_us - m_framer_us > LONGEST_PAUSE_US) m_framer.clear();
  m_framer_us = m_now_us;
  for (const char byte : bytes) {
    m_framer.add(static_cast<uint8_t>(byte));
    while (const auto command = m_framer.next()) obey(*command);
  }
}

void Receiver::obey(const UbxFramer::Found& command) {
  ++(command.intact ? m_statistics.frames_received : m_statistics.frames_corrupted);
  if (m_observer != nullptr) m_observer->on_command(m_now_us, command.frame, command.intact);
  if (!command.intact || m_mute || !m_control.settings().ubx_in()) return;
  if (m_answers.size() >= RECEIVER_KEEPS) {
    ++m_statistics.frames_lost;
    return;
  }
  const bool answers = m_control.settings().ubx_out();
  Reply reply = m_control.obey(command.frame);
  if (!answers) reply.frames.clear();
  m_answers.push_back({m_now_us + ANSWER_TIME_US + m_options.faults.late_us, std::move(reply)});
}

void Receiver::send_answer() {
  const Reply reply = std::move(m_answers.front().reply);
  m_answers.pop_front();
  for (const UbxFrame& frame : reply.frames) send_answer_frame(frame);
  follow_settings();
  take_effect(reply);
}

void Receiver::send_answer_frame(const UbxFrame& frame) {
  const int64_t now_ns = to_ns(m_now_us);
  const bool full = m_line.free_ns() > now_ns + m_line.duration_ns(TRANSMITTER_KEEPS);
  if (m_faults.loses_answer() || full || !is_room_for(encode(frame).size())) {
    ++m_statistics.frames_lost;
    return;
  }
  send_frame(m_faults.garbage().value_or(frame), now_ns);
}

void Receiver::follow_settings() {
  const EpochGrid grid = m_control.settings().grid(m_options.rate_hz);
  if (grid != m_grid) m_drive->set_grid(grid, m_now_us);
  m_grid = grid;
  prepare_drive();
  const bool same_speed = m_control.settings().baud() == m_line.baud();
  m_new_speed_us = same_speed ? INT64_MAX : std::max(m_now_us, to_us(m_line.free_ns()));
}

void Receiver::take_effect(const Reply& reply) {
  switch (reply.effect) {
    case Effect::none:
      break;
    case Effect::restart:
      stop(m_now_us + START_TIME_US);
      break;
    case Effect::stop_navigation:
      m_navigating = false;
      break;
    case Effect::start_navigation:
      if (!m_navigating) m_drive->skip_to(m_now_us);
      m_navigating = true;
      tell("navigation started");
      break;
    case Effect::sleep:
      tell("standby");
      stop(reply.sleep_us == 0 ? INT64_MAX : m_now_us + reply.sleep_us);
      m_woken_by_host = reply.woken_by_host;
      break;
  }
}

void Receiver::change_speed() {
  m_new_speed_us = INT64_MAX;
  if (m_options.spi) return;
  m_line.set_baud(m_control.settings().baud());
  tell("speed " + std::to_string(m_line.baud()));
}

// -- Power

void Receiver::power_cycle(int64_t now_us) {
  advance_to(now_us);
  if (m_drive != nullptr) fail_power();
}

void Receiver::hardware_reset(int64_t now_us) {
  advance_to(now_us);
  if (m_drive == nullptr) return;
  tell("reset by its line");
  stop(m_now_us + START_TIME_US);
}

void Receiver::set_antenna(AntennaState state) {
  constexpr std::array<const char*, 3> NAMES{"antenna ok", "antenna open", "antenna short-circuited"};
  tell(NAMES.at(static_cast<size_t>(state)));
  m_control.set_antenna(state);
}

void Receiver::fail_power() {
  tell("power fails");
  m_control.lose_power();
  stop(m_now_us + START_TIME_US);
}

void Receiver::stop(int64_t start_again_us) {
  m_line.cut(to_ns(m_now_us));
  if (m_options.spi) m_line.drop_arrived();
  m_answers.clear();
  m_sending.clear();
  m_framer.clear();
  m_new_speed_us = INT64_MAX;
  m_running = false;
  m_woken_by_host = false;
  m_start_us = start_again_us;
}

void Receiver::start() {
  m_start_us = INT64_MAX;
  m_running = true;
  m_navigating = true;
  m_solutions = 0;
  ++m_statistics.power_ups;
  tell("starts");
  m_control.boot();
  change_speed();
  m_grid = m_control.settings().grid(m_options.rate_hz);
  m_drive->set_grid(m_grid, m_now_us);
  m_drive->skip_to(m_now_us);
  prepare_drive();
}

// -- Output

int64_t Receiver::next_burst_us() const {
  const int64_t start_us = m_source->next_start_us();
  if (m_options.recording)
    return start_us == INT64_MAX ? INT64_MAX : std::max(start_us, to_us(m_line.free_ns()));
  if (!m_running || !m_navigating) return INT64_MAX;
  return m_new_speed_us == INT64_MAX ? start_us : std::max(start_us, m_new_speed_us);
}

bool Receiver::due(size_t periodic_index) const {
  const uint8_t rate = m_control.settings().message_rates[periodic_index][m_control.settings().host_port];
  return rate > 0 && m_solutions % rate == 0;
}

void Receiver::prepare_drive() {
  const Settings& settings = m_control.settings();
  DriveSource::Output output;
  output.sentences = {settings.constellations(), settings.nmea_version(), false};
  output.receives = m_control.receives();
  for (size_t i = 0; i < PERIODIC_MESSAGES.size(); ++i)
    if (const auto sentence = PERIODIC_MESSAGES[i].sentence; sentence && settings.nmea_out() && due(i))
      output.kinds.set(static_cast<size_t>(*sentence));
  m_drive->set_output(output);
}

void Receiver::begin_burst() {
  if (m_drive != nullptr) prepare_drive();
  Burst burst = m_source->take();
  ++m_statistics.epochs;
  if (burst.fix) {
    m_control.set_fix(*burst.fix);
    if (m_observer != nullptr) m_observer->on_epoch(m_now_us, *burst.fix);
  }
  const int64_t start_ns = to_ns(burst.start_us);
  const int64_t deadline_ns = to_ns(burst.deadline_us);
  if (m_faults.silent_at(burst.since_power_on_us)) {
    ++m_statistics.silent_epochs;
  } else {
    send_periodic(ubx::NAV_TIMEUTC, start_ns, deadline_ns);
    for (std::string& sentence : burst.sentences) send_sentence(sentence, start_ns, deadline_ns);
    send_periodic(ubx::MON_HW, start_ns, deadline_ns);
  }
  ++m_solutions;
}

bool Receiver::is_room_for(size_t bytes) const {
  return !m_options.spi || m_line.available() + bytes <= TRANSMITTER_KEEPS;
}

bool Receiver::fits(size_t bytes, int64_t start_ns, int64_t deadline_ns) const {
  return is_room_for(bytes) &&
         std::max(start_ns, m_line.free_ns()) <= deadline_ns - m_line.duration_ns(bytes);
}

void Receiver::send_sentence(std::string& sentence, int64_t start_ns, int64_t deadline_ns) {
  const Faults::Verdict verdict = m_faults.apply(sentence);
  if (verdict.dropped) {
    ++m_statistics.sentences_dropped;
    return;
  }
  if (!fits(sentence.size(), start_ns, deadline_ns)) {
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
  if (m_drive == nullptr) return;
  if (const auto garbage = m_faults.garbage();
      garbage && fits(encode(*garbage).size(), start_ns, deadline_ns))
    send_frame(*garbage, start_ns);
}

void Receiver::send_periodic(UbxId id, int64_t start_ns, int64_t deadline_ns) {
  const auto index = periodic_index(id);
  if (m_drive == nullptr || !index || !due(*index) || !m_control.settings().ubx_out()) return;
  const auto frame = m_control.report(id);
  if (!frame) return;
  if (fits(encode(*frame).size(), start_ns, deadline_ns)) {
    send_frame(*frame, start_ns);
  } else {
    ++m_statistics.frames_lost;
  }
}

void Receiver::send_frame(const UbxFrame& frame, int64_t start_ns) {
  m_line.send(encode(frame), start_ns);
  m_sending.push_back({m_line.free_ns(), frame});
  ++m_statistics.frames_sent;
}

int64_t Receiver::next_byte_us() const {
  if (const int64_t sending = m_line.next_byte_ns(); sending != INT64_MAX) return to_us(sending);
  const int64_t start_us = next_event_us();
  return start_us == INT64_MAX ? INT64_MAX : to_us(to_ns(start_us) + m_line.duration_ns(1));
}

int64_t Receiver::run_end_us() const {
  return to_us(m_line.run_end_ns());
}

Statistics Receiver::statistics() const {
  Statistics result = m_statistics;
  result.bytes_sent = m_line.bytes_sent();
  result.bytes_lost = m_line.bytes_lost();
  return result;
}

}  // namespace ecu::koru::sim
