#include "bench/ProcessFigures.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace bench {

namespace {

namespace fs = std::filesystem;

std::ifstream openFigures(const fs::path& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  return file;
}

int64_t firstNumber(const fs::path& path) {
  int64_t number = 0;
  auto file = openFigures(path);
  if (!(file >> number)) throw std::runtime_error("no number in " + path.string());
  return number;
}

/// Returns the number after "name:" in a status file; amounts of memory are in KiB.
int64_t statusNumber(const fs::path& folder, const std::string& name) {
  auto file = openFigures(folder / "status");
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string key;
    int64_t number = 0;
    if (fields >> key && key == name + ":" && fields >> number) return number;
  }
  throw std::runtime_error("no " + name + " in " + (folder / "status").string());
}

}  // namespace

ProcessFigures readFigures(pid_t pid) {
  const fs::path folder = fs::path("/proc") / std::to_string(pid);
  ProcessFigures figures;
  for (const auto& thread : fs::directory_iterator(folder / "task")) {
    figures.processor_ns += firstNumber(thread.path() / "schedstat");
    figures.wake_ups += statusNumber(thread.path(), "voluntary_ctxt_switches");
  }
  figures.resident_kib = statusNumber(folder, "VmRSS");
  figures.private_kib = statusNumber(folder, "RssAnon");
  figures.peak_kib = statusNumber(folder, "VmHWM");
  return figures;
}

Load loadBetween(const ProcessFigures& first, const ProcessFigures& last, double count) {
  return {static_cast<double>(last.processor_ns - first.processor_ns) / 1000 / count,
          static_cast<double>(last.wake_ups - first.wake_ups) / count};
}

std::string loadAverage() {
  std::string load;
  std::ifstream("/proc/loadavg") >> load;
  return load;
}

double wakeUpCost_us() {
  constexpr int wake_ups = 100;
  const fs::path count = "/proc/thread-self/schedstat";
  const int64_t before_ns = firstNumber(count);
  for (int i = 0; i < wake_ups; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return static_cast<double>(firstNumber(count) - before_ns) / 1000 / wake_ups;
}

}  // namespace bench
