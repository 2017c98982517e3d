// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/Device.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class I, class Space>
class FusedOpsImpl;

/// Sequences of vector kernels that occur in solvers, each in one pass over memory.
///
/// The results have the same bits as the separate calls of `BlasOps` and `SpBlasOps` that each
/// member names. Conventions are those of `BlasOps`; arrays do not overlap unless a member allows
/// it. T is one of the four scalar types.
template <class T, class I>
class MIVO_API FusedOps {
 public:
  using R = RealType<T>;

  /// Step of conjugate gradients: x = alpha p + x, r = -alpha q + r, both as `axpby` with factor 1;
  /// returns sum |r|^2 as `abs_sum`.
  static R cg_update(const Device& device, I n, T alpha, const T* p, T* x, const T* q, T* r);
  /// y = a x + y as `axpby` with factor 1; returns sum conj(y) z as `dot`. Step of a Gram-Schmidt
  /// process.
  static T axpy_dot(const Device& device, I n, T a, const T* x, T* y, const T* z);
  /// z = a x + b y as `axpbypcz` without its third term; returns sum |z|^2 as `abs_sum`. z may be x
  /// or y.
  static R axpby_squares(const Device& device, I n, T a, const T* x, T b, const T* y, T* z);
  /// x = relax d .* (b - A 0) + 0: a Jacobi sweep from zero with inverse diagonal d, for a finite
  /// A, whose rows then give sums of exactly +0. That is x = 0 by `fill`, r = b, r = -1 A x + 1 r
  /// by `aAxpby`, x = relax d .* r + 1 x by `axypbz`.
  static void jacobi_from_zero(const Device& device, I n, T relax, const T* d, const T* b, T* x);
  /// The same; returns sum |b|^2 as `abs_sum`.
  static R jacobi_from_zero_squares(const Device& device, I n, T relax, const T* d, const T* b,
                                    T* x);
  /// Number of elements that are infinite or NaN in any part.
  static I count_nonfinite(const Device& device, I n, const T* x);

 private:
  template <class Space>
  using Worker = FusedOpsImpl<T, I, Space>;
};

#define MIVO_EXTERN(T) extern template class FusedOps<T, int>;
MIVO_FOR_EACH_SCALAR(MIVO_EXTERN)
#undef MIVO_EXTERN

}  // namespace mivo
