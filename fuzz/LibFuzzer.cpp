// The entry for the fuzzer. The environment variable FUZZ_TARGET names the target.

#include <cstdlib>
#include <iostream>

#include "fuzz/FuzzTarget.h"

namespace {

const fuzz::Target& chosen() {
  const char* const name = std::getenv("FUZZ_TARGET");
  const fuzz::Target* const found = fuzz::find_target(name != nullptr ? name : "");
  if (found != nullptr) return *found;
  std::cerr << "FUZZ_TARGET must be one of";
  for (const auto& each : fuzz::targets()) std::cerr << ' ' << each.name;
  std::cerr << '\n';
  std::exit(2);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::Target& target = chosen();
  fuzz::run(target, {data, size});
  return 0;
}
