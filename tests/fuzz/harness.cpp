// SPDX-License-Identifier: Apache-2.0
#include "tests/fuzz/harness.hpp"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "mivo/utils/Device.hpp"
#include "mivo/utils/logging.hpp"

// Allocations above kMostBytes fail, by what the build offers for that.
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

// The end of the process by a fatal check becomes a jump back to the harness.

namespace {

std::jmp_buf* gs_back = nullptr;  ///< where to go instead of ending; null: end

}  // namespace

/// Stands before the function of the C library for all parts of the program, shared libraries
/// included: the library is built as for everybody, so that the linker cannot replace its calls.
extern "C" __attribute__((visibility("default"))) void exit(int status) noexcept {
  if (gs_back != nullptr) std::longjmp(*gs_back, 1);
  using Exit = void (*)(int);
  reinterpret_cast<Exit>(dlsym(RTLD_NEXT, "exit"))(status);
  __builtin_trap();
}

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

bool survives(const std::function<void()>& body) {
  std::jmp_buf back;
  if (setjmp(back) != 0) {
    gs_back = nullptr;
    return false;
  }
  gs_back = &back;
  try {
    body();
  } catch (...) {
    gs_back = nullptr;
    throw;
  }
  gs_back = nullptr;
  return true;
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
