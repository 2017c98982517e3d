// SPDX-License-Identifier: Apache-2.0
// The end of the process by a fatal check becomes a jump back to the harness.

#include <dlfcn.h>

#include <csetjmp>

#include "tests/fuzz/harness.hpp"

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

}  // namespace mivo::fuzz
