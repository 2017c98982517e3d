// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

#include "mivo/utils/Device.hpp"
#include "mivo/utils/memory.hpp"

namespace mivo::bench {

/// Host array as the library takes it: large blocks aligned for huge pages. Touched before use.
template <class T>
class Array {
 public:
  explicit Array(std::size_t size, T value = T(1))
      : size_(size), data_(mivo::detail::allocate<T>(Device(), size, "an array")) {
    std::fill_n(data_.get(), size, value);
  }
  T* data() const { return data_.get(); }
  std::size_t size() const { return size_; }
  T& operator[](std::size_t i) const { return data_.get()[i]; }

 private:
  struct Release {
    void operator()(T* p) const { Device().rawFree(p); }
  };
  std::size_t size_;
  std::unique_ptr<T, Release> data_;
};

/// a[i] = b[i] + s c[i] over arrays far larger than the caches: what the memory can do.
class Triad {
 public:
  explicit Triad(std::size_t size) : a_(size), b_(size), c_(size) {}

  double bytes() const { return 3.0 * sizeof(double) * static_cast<double>(a_.size()); }
  void run() const { loop(a_.size(), 3.0, a_.data(), b_.data(), c_.data()); }

 private:
  __attribute__((noinline)) static void loop(std::size_t n, double s, double* __restrict a,
                                             const double* __restrict b,
                                             const double* __restrict c) {
    for (std::size_t i = 0; i < n; ++i) a[i] = b[i] + s * c[i];
  }

  Array<double> a_, b_, c_;
};

}  // namespace mivo::bench
