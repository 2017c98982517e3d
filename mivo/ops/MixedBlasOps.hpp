// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/Complex.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/export.hpp"

namespace mivo {

template <class To, class From, class I, class Space>
class MixedBlasOpsImpl;

/// Copies between arrays of different value types. Arrays lie in the memory of the device and
/// belong to the caller; nothing is checked. I is int or long.
template <class To, class From, class I>
class MIVO_API MixedBlasOps {
 public:
  /// y = x converted; a real value becomes a complex one with imaginary part 0, a floating value an
  /// integer by truncation
  static void copy(const Device& device, I n, const From* x, To* y);

 private:
  template <class Space>
  using Worker = MixedBlasOpsImpl<To, From, I, Space>;
};

/// The pairs (To, From) that exist.
#define MIVO_FOR_EACH_MIXED_PAIR(M)  \
  M(double, float)                   \
  M(float, double)                   \
  M(double, int)                     \
  M(float, int)                      \
  M(int, double)                     \
  M(int, float)                      \
  M(Complex<double>, Complex<float>) \
  M(Complex<float>, Complex<double>) M(Complex<double>, int) M(Complex<float>, int)

#define MIVO_EXTERN(To, From)                        \
  extern template class MixedBlasOps<To, From, int>; \
  extern template class MixedBlasOps<To, From, long>;
MIVO_FOR_EACH_MIXED_PAIR(MIVO_EXTERN)
#undef MIVO_EXTERN

}  // namespace mivo
