// SPDX-License-Identifier: Apache-2.0
/// Preloaded into mivo-solve to let its memory run out behind its start, whatever that takes on the
/// machine: MIVO_TEST_ROOM is the address space in kB that it gets then, MIVO_TEST_REFUSE the
/// number of the allocation on a device that gives null, counted from then on.

#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>

#include "mivo/utils/Device.hpp"

namespace {

std::atomic<long> allocations_left{0};

long environmentNumber(const char* name) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::atol(text) : 0;
}

/// Bytes of address space that the process has taken.
rlim_t takenSpace() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

void mivo::Device::initialize() {
  reinterpret_cast<void (*)()>(dlsym(RTLD_NEXT, "_ZN4mivo6Device10initializeEv"))();
  allocations_left = environmentNumber("MIVO_TEST_REFUSE");
  if (const long room = environmentNumber("MIVO_TEST_ROOM")) {
    const rlim_t bytes = takenSpace() + static_cast<rlim_t>(room) * 1024;
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_AS, &limit);
  }
}

void* mivo::Device::rawMalloc(std::size_t bytes) const {
  using Allocate = void* (*)(const Device*, std::size_t);
  static const auto next =
      reinterpret_cast<Allocate>(dlsym(RTLD_NEXT, "_ZNK4mivo6Device9rawMallocEm"));
  return --allocations_left == 0 ? nullptr : next(this, bytes);
}
