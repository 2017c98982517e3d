// SPDX-License-Identifier: Apache-2.0
#include "mivo/comu/Stream.hpp"

#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "mivo/utils/memory.hpp"

namespace mivo::comu {

Stream::~Stream() {
  if (!borrowed) delete[] buffer;
}

Stream::Stream(Stream&& other) noexcept { swap(other); }

Stream& Stream::operator=(Stream&& other) noexcept {
  Stream taken(std::move(other));
  swap(taken);
  return *this;
}

void Stream::swap(Stream& other) noexcept {
  std::swap(buffer, other.buffer);
  std::swap(capacity, other.capacity);
  std::swap(read_position, other.read_position);
  std::swap(write_position, other.write_position);
  std::swap(borrowed, other.borrowed);
}

void Stream::setCapacity(int size) {
  if (size == 0) return;
  const std::size_t bytes = static_cast<std::size_t>(size);
  unsigned char* const fresh = new (std::nothrow) unsigned char[bytes];
  if (fresh == nullptr) mivo::detail::endWithoutMemory(bytes, Device(), "a message");
  setAllocactedBuffer(size, fresh);
  borrowed = false;
}

void Stream::setAllocactedBuffer(int size, void* memory) {
  buffer = static_cast<unsigned char*>(memory);
  capacity = size;
  read_position = 0;
  write_position = 0;
  borrowed = true;
}

void Stream::pushBack(const void* data, int size) {
  if (data != nullptr && size > 0) {
    std::memcpy(buffer + write_position, data, static_cast<std::size_t>(size));
  }
  write_position += size;
}

void Stream::popFront(void* data, int size) {
  if (data != nullptr && size > 0) {
    std::memcpy(data, buffer + read_position, static_cast<std::size_t>(size));
  }
  read_position += size;
}

}  // namespace mivo::comu
