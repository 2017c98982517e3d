// SPDX-License-Identifier: Apache-2.0
// Allocations above kMostBytes fail, by what the build offers for that.

#include <cerrno>
#include <cstddef>
#include <new>

#include "tests/fuzz/harness.hpp"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MIVO_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define MIVO_SANITIZED
#endif
#endif

#ifdef MIVO_SANITIZED

// What a fatal check jumps over is never freed.
#define MIVO_OPTIONS "allocator_may_return_null=1:max_allocation_size_mb=512:detect_leaks=0"
static_assert(mivo::fuzz::kMostBytes == std::size_t(512) << 20, "the option says the same");

extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return MIVO_OPTIONS;
}
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
  return MIVO_OPTIONS;
}

#else

#include <dlfcn.h>

/// Large blocks of host memory are asked for in this way only.
extern "C" __attribute__((visibility("default"))) int posix_memalign(void** block,
                                                                     std::size_t alignment,
                                                                     std::size_t bytes) noexcept {
  if (bytes > mivo::fuzz::kMostBytes) return ENOMEM;
  using Allocate = int (*)(void**, std::size_t, std::size_t);
  static const auto next = reinterpret_cast<Allocate>(dlsym(RTLD_NEXT, "posix_memalign"));
  return next(block, alignment, bytes);
}

#endif
