// Measures the road of a fix: bytes in memory to enveloped messages, framing alone, and one fix to one
// message and to the signal groups.
//
// Counters: items and bytes per second are per second of processor time. s_per_fix is the processor time of
// one fix, and allocations_per_fix the calls of operator new per fix.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/Allocations.h"
#include "core/GPSDClient.h"
#include "input/SerialInput.h"
#include "nmea/GnssInfo.h"
#include "nmea/NmeaParsers.h"
#include "platform/base/Logging.h"
#include "platform/base/Time.h"
#include "publish/GnssPublishCAN.h"
#include "publish/GnssPublishMqtt.h"
#include "sim/gnss/Receiver.h"
#include "wire/Stopwatch.h"

namespace {

using namespace ecu::koru;

constexpr int EPOCHS = 100'000;
constexpr int SENTENCES_PER_EPOCH = 5;  // RMC, GGA, two GSA, GST

/// The receiver's bytes of a drive, and where each epoch ends.
struct Drive {
  std::string bytes;
  std::vector<size_t> ends;
};

Drive makeDrive() {
  sim::ReceiverOptions options;
  options.baud = 115200;
  options.sentences.gsv = false;
  sim::Receiver receiver(options);
  Drive drive;
  std::vector<uint8_t> chunk(4096);
  for (int64_t s = 1; s <= EPOCHS; ++s) {
    receiver.advance_to(s * 1'000'000);
    while (const size_t count = receiver.read(chunk)) {
      drive.bytes.append(reinterpret_cast<const char*>(chunk.data()), count);
    }
    drive.ends.push_back(drive.bytes.size());
  }
  return drive;
}

const Drive& drive() {
  static const Drive made = makeDrive();
  return made;
}

/// Returns the drive's bytes with one in a hundred replaced by a random one.
const std::string& corruptedBytes() {
  static const std::string corrupted = [] {
    std::string bytes = drive().bytes;
    std::mt19937 random(42);
    for (char& byte : bytes) {
      if (random() % 100 == 0) byte = static_cast<char>(random());
    }
    return bytes;
  }();
  return corrupted;
}

/// A terminal that delivers the drive: every epoch arrives in one burst, a second of virtual time after
/// the previous one.
class MemoryTerminal final : public gpspub::ITerminalDevice {
 public:
  MemoryTerminal(const Drive& drive, VirtualTime& time) : m_drive(drive), m_time(time) {}
  void setService(gpspub::GPSDClient& service) { m_service = &service; }

  int open(const std::string&) override { return 3; }
  int close(int) override { return 0; }
  ssize_t write(int, const void*, size_t len) override { return static_cast<ssize_t>(len); }
  void dropInput(int) override {}
  int getAttributes(int, termios&) override { return 0; }
  int setAttributes(int, const termios&) override { return 0; }
  bool isWritable(int) override { return true; }
  int bytesReadable(int) override { return static_cast<int>(m_drive.ends[m_epoch] - m_at); }
  int waitReadable(int, int timeout_us, WakeUp*) override {
    if (m_at < m_drive.ends[m_epoch]) return 1;
    if (m_epoch + 1 == m_drive.ends.size()) {
      m_service->stop();
      m_time.advance(int64_t{timeout_us} * 1000);
      return 0;
    }
    if (timeout_us == 0) return 0;  // SerialInput::read() asks once more before it gives up
    ++m_epoch;
    m_time.advance(1'000'000'000);
    return 1;
  }
  ssize_t read(int, void* data, size_t max) override {
    const size_t count = std::min(max, m_drive.ends[m_epoch] - m_at);
    std::memcpy(data, m_drive.bytes.data() + m_at, count);
    m_at += count;
    return static_cast<ssize_t>(count);
  }

 private:
  const Drive& m_drive;
  VirtualTime& m_time;
  gpspub::GPSDClient* m_service = nullptr;
  size_t m_epoch = 0;
  size_t m_at = 0;
};

/// Counts messages and bytes instead of sending them.
class CountingTransport final : public com::ITransportClient {
 public:
  bool connect() override { return true; }
  bool start() override { return true; }
  bool stop() override { return true; }
  [[nodiscard]] bool is_connected() const override { return true; }
  void on_connection_change(std::function<void()>) override {}
  int publish(const std::string&, const com::Message& message, com::Delivery) override {
    ++messages;
    bytes += static_cast<long>(message.payload.size());
    return 0;
  }
  bool subscribe(const std::string&, const std::shared_ptr<com::ISubscriptionObserver>&, int) override {
    return true;
  }
  bool unsubscribe(const std::string&) override { return true; }
  [[nodiscard]] std::chrono::milliseconds read_timeout() const override { return {}; }

  long messages = 0;
  long bytes = 0;
};

/// (a) The whole service on a terminal in memory: framing, validation, parsing,
/// assembly, serialization, envelope.
void BM_Road(benchmark::State& state) {
  const Drive& driven = drive();
  long fixes = 0;
  long allocations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    VirtualTime time;
    set_time_source(&time);
    gpspub::GnssUtils::initDuration();
    auto counting = std::make_shared<CountingTransport>();
    std::shared_ptr<com::ITransportClient> transport = counting;
    auto terminal = std::make_unique<MemoryTerminal>(driven, time);
    MemoryTerminal& bytes = *terminal;
    auto service = std::make_unique<gpspub::GPSDClient>(
        transport, "bench", "true", "bench", "/dev/ttyFP3",
        gpspub::UnitHardware{std::make_unique<gpspub::SerialInput>(std::move(terminal))});
    service->setBaudRate(115200);
    bytes.setService(*service);
    const long before = allocationCount();
    state.ResumeTiming();
    service->run();
    state.PauseTiming();
    allocations += allocationCount() - before;
    fixes += counting->messages;
    if (counting->messages != EPOCHS) state.SkipWithError("an epoch was lost");
    service.reset();
    set_time_source(nullptr);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(fixes * SENTENCES_PER_EPOCH);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(driven.bytes.size()));
  const auto seconds_per = benchmark::Counter::kIsRate | benchmark::Counter::kInvert;
  state.counters["s_per_fix"] = benchmark::Counter(static_cast<double>(fixes), seconds_per);
  state.counters["allocations_per_fix"] = static_cast<double>(allocations) / static_cast<double>(fixes);
}
BENCHMARK(BM_Road)->Unit(benchmark::kMillisecond);

/// A terminal that delivers 256 bytes a read, like a burst that arrives slowly.
class ChunkTerminal final : public gpspub::ITerminalDevice {
 public:
  explicit ChunkTerminal(const std::string& bytes) : m_bytes(bytes) {}
  int open(const std::string&) override { return 3; }
  int close(int) override { return 0; }
  ssize_t write(int, const void*, size_t len) override { return static_cast<ssize_t>(len); }
  void dropInput(int) override {}
  int getAttributes(int, termios&) override { return 0; }
  int setAttributes(int, const termios&) override { return 0; }
  bool isWritable(int) override { return true; }
  int bytesReadable(int) override { return 256; }
  int waitReadable(int, int, WakeUp*) override { return m_at < m_bytes.size() ? 1 : 0; }
  ssize_t read(int, void* data, size_t max) override {
    const size_t count = std::min(max, m_bytes.size() - m_at);
    std::memcpy(data, m_bytes.data() + m_at, count);
    m_at += count;
    return static_cast<ssize_t>(count);
  }

 private:
  const std::string& m_bytes;
  size_t m_at = 0;
};

/// (b) Framing alone. With argument 1, one byte in a hundred is corrupted.
void BM_Framing(benchmark::State& state) {
  const std::string& bytes = state.range(0) == 0 ? drive().bytes : corruptedBytes();
  long items = 0;
  for (auto _ : state) {
    gpspub::SerialInput input(std::make_unique<ChunkTerminal>(bytes));
    if (!input.connect()) state.SkipWithError("no terminal");
    while (input.waiting(100)) items += input.read() ? 1 : 0;
  }
  state.SetItemsProcessed(items);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_Framing)->ArgName("corrupted")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

struct Fix {
  Fix() {
    for (size_t start = 0; start < drive().ends[0];) {
      const size_t end = drive().bytes.find('\n', start) + 1;
      sentences.push_back(drive().bytes.substr(start, end - start));
      start = end;
    }
    gpspub::GnssUtils::parseRMCString(sentences[0], info);
    gpspub::GnssUtils::parseGGAString(sentences[1], info);
    gpspub::GnssUtils::parseGSAString(sentences[2], info);
    gpspub::GnssUtils::parseGSTString(sentences.back(), info);
    info.m_receiver_flag = 1;
    info.m_local_hour_offset = 1;
    info.m_local_minute_offset = 0;
  }
  std::vector<std::string> sentences;
  gpspub::GnssInfo info;
};

void publishFixes(benchmark::State& state, gpspub::IGnssPublish& publisher) {
  Fix fix;
  auto counting = std::make_shared<CountingTransport>();
  std::shared_ptr<com::ITransportClient> transport = counting;
  publisher.publishFrame(transport, fix.info, fix.sentences);
  const long before = allocationCount();
  for (auto _ : state) {
    fix.info.setUtcTime(-1);
    publisher.publishFrame(transport, fix.info, fix.sentences);
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["allocations_per_fix"] =
      static_cast<double>(allocationCount() - before) / static_cast<double>(state.iterations());
  state.counters["message_bytes"] =
      static_cast<double>(counting->bytes) / static_cast<double>(counting->messages);
}

/// (c) Turns a fix with its five sentences into one enveloped message.
void BM_FixToMessage(benchmark::State& state) {
  gpspub::GnssPublishMqtt publisher;
  publishFixes(state, publisher);
}
BENCHMARK(BM_FixToMessage);

/// (d) Turns a fix into all six signal groups, packed and enveloped.
void BM_FixToGroups(benchmark::State& state) {
  gpspub::GnssPublishCAN publisher;
  publishFixes(state, publisher);
}
BENCHMARK(BM_FixToGroups);

}  // namespace

int main(int argc, char** argv) {
  logging::configure_logging("ERROR");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
