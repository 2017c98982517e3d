// SPDX-License-Identifier: Apache-2.0
// fuzz_replay TARGET FOLDER: feeds each file of the folder to the target.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/targets.hpp"

int main(int argc, char** argv) {
  using namespace mivo::fuzz;
  if (argc != 3) return 2;
  const Target* const target =
      std::find_if(std::begin(kTargets), std::end(kTargets),
                   [&](const Target& t) { return std::strcmp(t.name, argv[1]) == 0; });
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
