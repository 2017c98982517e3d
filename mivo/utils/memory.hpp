// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>

#include "mivo/utils/Device.hpp"
#include "mivo/utils/export.hpp"

namespace mivo::detail {

/// Ends the process by the fatal check, with a line that gives the bytes that were asked for, the
/// device and what was to be made of them. Takes no memory from the heap itself.
[[noreturn]] MIVO_API void endWithoutMemory(std::size_t bytes, const Device& device,
                                            const char* what);

/// Fresh memory for `count` elements on `device`, uninitialised; the caller's, to be given back by
/// `rawFree`. Null for a count of 0 and on kinds without memory, such as "hip"; where the host or a
/// GPU has none left, the process ends. So a null array never stands for entries that exist.
template <class T>
T* allocate(const Device& device, std::size_t count, const char* what) {
  if (count == 0) return nullptr;
  constexpr std::size_t kMost = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T);
  const std::size_t bytes =
      count <= kMost ? count * sizeof(T) : std::numeric_limits<std::size_t>::max();
  void* const memory = device.rawMalloc(bytes);
  const bool expected = device.type == Device::kHost || device.type == Device::kCuda;
  if (memory == nullptr && expected) endWithoutMemory(bytes, device, what);
  return static_cast<T*>(memory);
}

}  // namespace mivo::detail
