// Runs inputs through a target without a fuzzer: fuzz_replay TARGET PATH..., files and folders of files.

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzz/FuzzTarget.h"

namespace fs = std::filesystem;

namespace {

/// Aborts when the target does.
void replay(const fuzz::Target& target, const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> input{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::clog << path.string() << std::endl;  // the last line names a culprit
  fuzz::run(target, {reinterpret_cast<const uint8_t*>(input.data()), input.size()});
}

}  // namespace

int main(int argc, char** argv) {
  const fuzz::Target* const target = argc > 1 ? fuzz::find_target(argv[1]) : nullptr;
  if (target == nullptr) {
    std::cerr << "usage: fuzz_replay TARGET PATH...\ntargets:";
    for (const auto& each : fuzz::targets()) std::cerr << ' ' << each.name;
    std::cerr << '\n';
    return 2;
  }
  int replayed = 0;
  for (int i = 2; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      replay(*target, argv[i]), ++replayed;
      continue;
    }
    for (const auto& entry : fs::directory_iterator(argv[i])) replay(*target, entry.path()), ++replayed;
  }
  std::cout << target->name << ": " << replayed << " inputs\n";
  return replayed > 0 ? 0 : 1;
}
