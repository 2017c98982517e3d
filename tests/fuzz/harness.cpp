// SPDX-License-Identifier: Apache-2.0
#include "tests/fuzz/harness.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "mivo/utils/Device.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo::fuzz {

void startHarness() {
  // Never deleted: the stream is flushed after all static objects of the program are gone.
  static NullBuffer* const nowhere = new NullBuffer;
  Device::initialize();
  std::cout.rdbuf(nowhere);
}

bool isQuick(double elements) {
  constexpr double kFew = 1 << 12;
  // Enough even where an element has 4 bytes.
  return elements <= kFew || elements >= static_cast<double>(kMostBytes);
}

void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "this does not hold: %s\n", property);
  std::abort();
}

MemoryFile::MemoryFile(const std::string& content)
    : descriptor_(memfd_create("input", 0)), path_("/proc/self/fd/" + std::to_string(descriptor_)) {
  const auto size = static_cast<ssize_t>(content.size());
  require(descriptor_ >= 0 && write(descriptor_, content.data(), content.size()) == size,
          "a file in memory can be written");
}

MemoryFile::~MemoryFile() { close(descriptor_); }

}  // namespace mivo::fuzz
