// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/RowArena.hpp"

#include <sched.h>

#include <algorithm>
#include <mutex>

#include "mivo/utils/Device.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/memory.hpp"

namespace mivo {
namespace {

constexpr int kSpins = 64;
// A small assembly stays small, a large one takes whole huge pages.
constexpr std::size_t kFirstChunk = std::size_t(1) << 12;
constexpr std::size_t kLastChunk = std::size_t(1) << 24;

}  // namespace

void SpinLock::wait() {
  for (;;) {
    for (int k = 0; k < kSpins; ++k) {
      if (!held_.load(std::memory_order_relaxed) &&
          !held_.exchange(true, std::memory_order_acquire)) {
        return;
      }
    }
    sched_yield();
  }
}

RowArena::~RowArena() {
  for (void* chunk : chunks_) Device().rawFree(chunk);
}

char* RowArena::addChunk(std::size_t bytes) {
  char* const chunk = detail::allocate<char>(Device(), bytes, "rows of an assembly");
  chunks_.push_back(chunk);
  return chunk;
}

void* RowArena::allocate(unsigned sizeClass) {
  const std::lock_guard<SpinLock> guard(lock_);
  MIVO_CHECK(sizeClass < kClasses) << "assembly: a row is too long";
  if (FreeBlock* block = free_[sizeClass]) {
    free_[sizeClass] = block->next;
    return block;
  }
  const std::size_t bytes = std::size_t(1) << sizeClass;
  if (bytes > left_) {
    // A block that would take much of a chunk gets one of its own, and the rest of the open one
    // stays in use.
    if (bytes >= kLastChunk / 4 || (chunk_bytes_ > 0 && bytes >= chunk_bytes_))
      return addChunk(bytes);
    chunk_bytes_ = std::min(kLastChunk, std::max({kFirstChunk, 2 * chunk_bytes_, 4 * bytes}));
    cursor_ = addChunk(chunk_bytes_);
    left_ = chunk_bytes_;
  }
  char* const block = cursor_;
  cursor_ += bytes;
  left_ -= bytes;
  return block;
}

void RowArena::release(void* block, unsigned sizeClass) {
  const std::lock_guard<SpinLock> guard(lock_);
  FreeBlock* const head = static_cast<FreeBlock*>(block);
  head->next = free_[sizeClass];
  free_[sizeClass] = head;
}

}  // namespace mivo
