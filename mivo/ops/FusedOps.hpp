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
  /// Two three-term recurrences: r = r + a v + b v_old and z = z + a u + b u_old, as two `axpy`
  /// each; returns (r, z) as `dot`.
  static T lanczos_pair(const Device& device, I n, T a, const T* v, const T* u, T b, const T* v_old,
                        const T* u_old, T* r, T* z);
  /// Step of minimum residuals: w = g u + d w_old + e w, as `scal` and two `axpy`, then
  /// x = x + step w as `axpy`.
  static void minres_step(const Device& device, I n, T g, const T* u, T d, const T* w_old, T e,
                          T* w, T step, T* x);
  /// Step along the LQ point: with w = c w_bar + s u it does w_bar = -s w_bar + c u and
  /// x = x + step w, all as `scal` and `axpy`.
  static void symmlq_step(const Device& device, I n, T c, T s, const T* u, T* w_bar, T step, T* x);
  /// Two reflections of a basis and a step along its column that is final now. With u = g z and
  /// t = s2 w - c2 u it does x = x + step (c2 w + s2 u), w_old = c1 w_old + s1 t, and
  /// w = s1 w_old - c1 t from the old w_old.
  static void qlp_step(const Device& device, I n, T g, const T* z, T c2, T s2, T c1, T s1, T step,
                       T* w_old, T* w, T* x);
  /// x = relax d .* (b - A 0) + 0: a Jacobi sweep from zero with inverse diagonal d, for a finite
  /// A, whose rows then give sums of exactly +0. That is x = 0 by `fill`, r = b, r = -1 A x + 1 r
  /// by `aAxpby`, x = relax d .* r + 1 x by `axypbz`.
  static void jacobi_from_zero(const Device& device, I n, T relax, const T* d, const T* b, T* x);
  /// Number of elements that are infinite or NaN in any part.
  static I count_nonfinite(const Device& device, I n, const T* x);

 private:
  template <class Space>
  using Worker = FusedOpsImpl<T, I, Space>;
};

MIVO_EXTERN_SCALARS(FusedOps, int)

}  // namespace mivo
