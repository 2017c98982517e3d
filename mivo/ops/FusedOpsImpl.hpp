// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/spm/parallel.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// True when no part of `a` is infinite or NaN: only then a - a is zero.
template <class T>
MIVO_FUNCTION bool isFinite(const T& a) {
  const RealType<T> re = realPart(a);
  const RealType<T> im = imagPart(a);
  return re - re == 0 && im - im == 0;
}

// Products by one and zero are kept: for complex numbers they decide signs of zeros and spread NaN.

/// relax d (b - A 0) + 0 for one row, where A 0 is zero.
template <class T>
MIVO_FUNCTION T jacobiFromZero(const T& relax, const T& d, const T& b) {
  const T zero(0);
  const T one(1);
  const T r = T(-1) * zero + one * b;
  return (d * relax) * r + zero * one;
}

/// Bodies of `FusedOps`, written once for all execution spaces.
template <class T, class I, class Space>
class FusedOpsImpl {
 public:
  using R = RealType<T>;
  using Policy = spm::RangePolicy<Space>;

  static R cg_update(Space& space, I n, T alpha, const T* p, T* x, const T* q, T* r);
  static T axpy_dot(Space& space, I n, T a, const T* x, T* y, const T* z);
  static R axpby_squares(Space& space, I n, T a, const T* x, T b, const T* y, T* z);
  static T lanczos_pair(Space& space, I n, T a, const T* v, const T* u, T b, const T* v_old,
                        const T* u_old, T* r, T* z);
  static void minres_step(Space& space, I n, T g, const T* u, T d, const T* w_old, T e, T* w,
                          T step, T* x);
  static void symmlq_step(Space& space, I n, T c, T s, const T* u, T* w_bar, T step, T* x);
  static void qlp_step(Space& space, I n, T g, const T* z, T c2, T s2, T c1, T s1, T step, T* w_old,
                       T* w, T* x);
  static void jacobi_from_zero(Space& space, I n, T relax, const T* d, const T* b, T* x);
  static I count_nonfinite(Space& space, I n, const T* x);
};

template <class T, class I, class Space>
RealType<T> FusedOpsImpl<T, I, Space>::cg_update(Space& space, I n, T alpha, const T* p, T* x,
                                                 const T* q, T* r) {
  R result{};
  const T minus = -alpha;
  const T one(1);
  spm::parallel_reduce(
      Policy(space, 0, n),
      [=] MIVO_FUNCTION(I i, R & acc) {
        x[i] = p[i] * alpha + x[i] * one;
        const T ri = q[i] * minus + r[i] * one;
        r[i] = ri;
        acc += absSquared(ri);
      },
      spm::Sum<R, Space>(result));
  return result;
}

template <class T, class I, class Space>
T FusedOpsImpl<T, I, Space>::axpy_dot(Space& space, I n, T a, const T* x, T* y, const T* z) {
  T result{};
  const T one(1);
  spm::parallel_reduce(
      Policy(space, 0, n),
      [=] MIVO_FUNCTION(I i, T & acc) {
        const T yi = x[i] * a + y[i] * one;
        y[i] = yi;
        acc += conj(yi) * z[i];
      },
      spm::Sum<T, Space>(result));
  return result;
}

template <class T, class I, class Space>
RealType<T> FusedOpsImpl<T, I, Space>::axpby_squares(Space& space, I n, T a, const T* x, T b,
                                                     const T* y, T* z) {
  R result{};
  spm::parallel_reduce(
      Policy(space, 0, n),
      [=] MIVO_FUNCTION(I i, R & acc) {
        const T zi = x[i] * a + y[i] * b;
        z[i] = zi;
        acc += absSquared(zi);
      },
      spm::Sum<R, Space>(result));
  return result;
}

template <class T, class I, class Space>
T FusedOpsImpl<T, I, Space>::lanczos_pair(Space& space, I n, T a, const T* v, const T* u, T b,
                                          const T* v_old, const T* u_old, T* r, T* z) {
  T result{};
  spm::parallel_reduce(
      Policy(space, 0, n),
      [=] MIVO_FUNCTION(I i, T & acc) {
        const T ri = (r[i] + v[i] * a) + v_old[i] * b;
        const T zi = (z[i] + u[i] * a) + u_old[i] * b;
        r[i] = ri;
        z[i] = zi;
        acc += conj(ri) * zi;
      },
      spm::Sum<T, Space>(result));
  return result;
}

template <class T, class I, class Space>
void FusedOpsImpl<T, I, Space>::minres_step(Space& space, I n, T g, const T* u, T d, const T* w_old,
                                            T e, T* w, T step, T* x) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) {
    const T wi = (u[i] * g + w_old[i] * d) + w[i] * e;
    w[i] = wi;
    x[i] += wi * step;
  });
}

template <class T, class I, class Space>
void FusedOpsImpl<T, I, Space>::symmlq_step(Space& space, I n, T c, T s, const T* u, T* w_bar,
                                            T step, T* x) {
  const T minus = -s;
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) {
    const T wi = w_bar[i] * c + u[i] * s;
    w_bar[i] = w_bar[i] * minus + u[i] * c;
    x[i] += wi * step;
  });
}

template <class T, class I, class Space>
void FusedOpsImpl<T, I, Space>::qlp_step(Space& space, I n, T g, const T* z, T c2, T s2, T c1, T s1,
                                         T step, T* w_old, T* w, T* x) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) {
    const T ui = z[i] * g;
    const T ti = w[i] * s2 - ui * c2;
    x[i] += (w[i] * c2 + ui * s2) * step;
    w[i] = w_old[i] * s1 - ti * c1;
    w_old[i] = w_old[i] * c1 + ti * s1;
  });
}

template <class T, class I, class Space>
void FusedOpsImpl<T, I, Space>::jacobi_from_zero(Space& space, I n, T relax, const T* d, const T* b,
                                                 T* x) {
  spm::parallel_for(Policy(space, 0, n),
                    [=] MIVO_FUNCTION(I i) { x[i] = jacobiFromZero(relax, d[i], b[i]); });
}

template <class T, class I, class Space>
I FusedOpsImpl<T, I, Space>::count_nonfinite(Space& space, I n, const T* x) {
  I result{};
  spm::parallel_reduce(
      Policy(space, 0, n), [=] MIVO_FUNCTION(I i, I & acc) { acc += isFinite(x[i]) ? 0 : 1; },
      spm::Sum<I, Space>(result));
  return result;
}

MIVO_CUDA_SCALARS(FusedOpsImpl, int)

}  // namespace mivo
