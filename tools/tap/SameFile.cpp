#include "tools/tap/SameFile.h"

#include <filesystem>
#include <vector>

namespace ecu::koru::tap {

namespace {

namespace fs = std::filesystem;

struct UsedFile {
  const char* option;
  std::string name;
  bool written;
};

std::vector<UsedFile> files_of(const Options& options) {
  std::vector<UsedFile> out = {
      {"--config", options.bus.config_file, false}, {"--signal-database", options.signal_database, false},
      {"--read", options.recording.read, false},    {"--replay", options.recording.replay, false},
      {"--can-log", options.can_log.file, true},    {"--record", options.recording.record, true},
      {"--pty", options.nmea.terminal_link, true}};
  for (const auto& [format, file] : options.exports) out.push_back({"--export", file, true});
  out.push_back({"standard output", "/dev/stdout", true});
  for (auto& file : out) {
    if (!file.written && file.name == "-") file.name = "/dev/stdin";
  }
  std::erase_if(out, [](const auto& file) { return file.name.empty(); });
  return out;
}

bool are_same(const std::string& one, const std::string& other) {
  std::error_code error;
  const auto status = fs::status(one, error);
  if (fs::exists(status)) return fs::is_regular_file(status) && fs::equivalent(one, other, error);
  const auto path = fs::weakly_canonical(fs::absolute(one, error), error);
  return !path.empty() && path == fs::weakly_canonical(fs::absolute(other, error), error);
}

}  // namespace

std::string shared_file(const Options& options) {
  const auto files = files_of(options);
  for (auto second = files.begin(); second != files.end(); ++second) {
    for (auto first = files.begin(); first != second; ++first) {
      if ((first->written || second->written) && are_same(first->name, second->name))
        return std::string(first->option) + " and " + second->option + " are the same file: " + first->name;
    }
  }
  return {};
}

}  // namespace ecu::koru::tap
