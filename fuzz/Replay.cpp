// Runs inputs without a fuzzer: files in a folder named after their target, and all files below a folder.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <vector>

#include "fuzz/FuzzTarget.h"

namespace fs = std::filesystem;

namespace {

/// Prints the path first, so that the last line names the input if the target aborts.
bool replay(const fs::path& path) {
  const std::string name = path.parent_path().filename().string();
  const fuzz::Target* const target = fuzz::find_target(name);
  if (target == nullptr) {
    std::cerr << path.string() << ": there is no target '" << name << "'\n";
    return false;
  }
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> input{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::clog << path.string() << std::endl;
  fuzz::run(*target, {reinterpret_cast<const uint8_t*>(input.data()), input.size()});
  return true;
}

std::vector<fs::path> files_below(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const auto& entry : fs::recursive_directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  int replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& path : files_below(argv[i])) {
      if (!replay(path)) return 2;
      ++replayed;
    }
  }
  std::cout << replayed << " inputs\n";
  return replayed > 0 ? 0 : 2;
}
