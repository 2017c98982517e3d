// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/export.hpp"

namespace mivo::comu {

/// Flat byte buffer with independent read and write positions, into which messages are packed.
///
/// Nothing is checked: whoever packs has computed the size exactly beforehand. What is packed lies
/// without gaps and in native byte order, since all ranks of a job are alike.
class MIVO_API Stream {
 public:
  /// No buffer; nothing may be pushed until there is one.
  Stream() = default;
  /// Frees the buffer unless it is borrowed.
  ~Stream();
  Stream(Stream&& other) noexcept;
  Stream& operator=(Stream&& other) noexcept;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// Takes an uninitialised buffer of `size` bytes and sets both positions to 0. Called once in the
  /// life of a stream: an earlier buffer is not freed. A size of 0 changes nothing.
  void setCapacity(int size);

  /// Adopts a buffer that stays the caller's, and sets both positions to 0.
  void setAllocactedBuffer(int capacity, void* buffer);

  /// Copies `size` bytes to the write position and moves it on. Null `data` only moves it: this
  /// marks as written what a message will fill.
  void pushBack(const void* data, int size);

  /// Copies `size` bytes from the read position and moves it on. Null `data` only moves it.
  void popFront(void* data, int size);

  unsigned char* getBuffer() const { return buffer; }
  int getCapacity() const { return capacity; }
  int getReadPosition() const { return read_position; }
  int getWritePosition() const { return write_position; }

 private:
  void swap(Stream& other) noexcept;

  unsigned char* buffer = nullptr;
  int capacity = 0;
  int read_position = 0;
  int write_position = 0;
  bool borrowed = false;
};

}  // namespace mivo::comu

namespace comu = mivo::comu;
