// SPDX-License-Identifier: Apache-2.0
#include "memory.hpp"

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>

namespace mivo_solve {
namespace {

constexpr double kUnknown = std::numeric_limits<double>::infinity();

/// First number of a one-line file; "max" and a missing file mean no limit.
double readNumber(const char* path) {
  std::ifstream file(path);
  double value = 0;
  return file >> value ? value : kUnknown;
}

double systemMemory() {
  std::ifstream file("/proc/meminfo");
  std::string word;
  double kilobytes = 0;
  while (file >> word) {
    if (word == "MemAvailable:" && file >> kilobytes) {
      return kilobytes * 1024;
    }
  }
  return kUnknown;
}

}  // namespace

double availableMemory() {
  const double limit = std::min(readNumber("/sys/fs/cgroup/memory.max"),
                                readNumber("/sys/fs/cgroup/memory/memory.limit_in_bytes"));
  return std::min(systemMemory(), limit);
}

double estimatedMemory(double rows, double entries, bool complex) {
  const double valueBytes = complex ? 16 : 8;
  constexpr double kVectors = 12;
  constexpr double kIndexBytes = 4;
  constexpr double kAssemblyBytes = 40;  // measured: 36 for a file, less for a generated matrix
  return rows * (kVectors * valueBytes + 2 * kIndexBytes) +
         entries * (valueBytes + kIndexBytes + kAssemblyBytes);
}

}  // namespace mivo_solve
