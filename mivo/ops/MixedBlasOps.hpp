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

/// The pairs (To, From) that exist: calls M(To, From, ...) for each.
#define MIVO_FOR_EACH_MIXED_PAIR(M, ...)          \
  M(double, float, __VA_ARGS__)                   \
  M(float, double, __VA_ARGS__)                   \
  M(double, int, __VA_ARGS__)                     \
  M(float, int, __VA_ARGS__)                      \
  M(int, double, __VA_ARGS__)                     \
  M(int, float, __VA_ARGS__)                      \
  M(Complex<double>, Complex<float>, __VA_ARGS__) \
  M(Complex<float>, Complex<double>, __VA_ARGS__) \
  M(Complex<double>, int, __VA_ARGS__)            \
  M(Complex<float>, int, __VA_ARGS__)
#define MIVO_MIXED_INSTANCE(To, From, KIND, CLASS, ...) KIND class CLASS<To, From, __VA_ARGS__>;

MIVO_FOR_EACH_MIXED_PAIR(MIVO_MIXED_INSTANCE, extern template, MixedBlasOps, int)
MIVO_FOR_EACH_MIXED_PAIR(MIVO_MIXED_INSTANCE, extern template, MixedBlasOps, long)

}  // namespace mivo
