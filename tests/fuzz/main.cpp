// SPDX-License-Identifier: Apache-2.0
// With MIVO_FUZZ_TARGET, a function of targets.hpp, the entry points of libFuzzer; without
// fuzz_replay TARGET FOLDER, which feeds each file of the folder to the target.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/targets.hpp"

using namespace mivo::fuzz;

#ifdef MIVO_FUZZ_TARGET

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  startHarness();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MIVO_FUZZ_TARGET(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}

#else

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const Target* const target =
      std::find_if(std::begin(kTargets), std::end(kTargets),
                   [&](const Target& t) { return t.name == std::string(argv[1]); });
  if (target == std::end(kTargets)) return 2;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[2])) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  startHarness();
  for (const auto& path : files) {
    std::fprintf(stderr, "%s\n", path.filename().c_str());
    std::ifstream file(path, std::ios::binary);
    target->run({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
  }
  std::fprintf(stderr, "%zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}

#endif
