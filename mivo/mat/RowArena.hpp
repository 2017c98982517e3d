// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

#include "mivo/utils/export.hpp"

namespace mivo {

/// Lock of one byte for sections of a few instructions, of which there may be millions. It spins
/// for a moment, then gives the processor away between tries. Fits std::lock_guard.
class MIVO_API SpinLock {
 public:
  void lock() {
    if (held_.exchange(true, std::memory_order_acquire)) wait();
  }
  void unlock() { held_.store(false, std::memory_order_release); }

 private:
  void wait();

  std::atomic<bool> held_{false};
};

/// Memory of the rows of one assembly: small blocks cut from large chunks, because fresh pages cost
/// more than the work on them. Blocks have sizes of powers of two; one that is given back serves
/// the next request of its size. Everything is freed with the arena. Safe from several threads.
class MIVO_API RowArena {
 public:
  RowArena() = default;
  ~RowArena();
  RowArena(const RowArena&) = delete;
  RowArena& operator=(const RowArena&) = delete;

  /// 2^sizeClass bytes, aligned to 16; sizeClass is at least 4.
  void* allocate(unsigned sizeClass);
  void release(void* block, unsigned sizeClass);

 private:
  struct FreeBlock {
    FreeBlock* next;
  };
  static constexpr unsigned kClasses = 48;

  char* addChunk(std::size_t bytes);

  SpinLock lock_;
  FreeBlock* free_[kClasses] = {};
  char* cursor_ = nullptr;
  std::size_t left_ = 0;         ///< bytes behind the cursor
  std::size_t chunk_bytes_ = 0;  ///< size of the last common chunk
  std::vector<void*> chunks_;
};

}  // namespace mivo
