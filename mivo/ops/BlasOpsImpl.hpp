// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "mivo/spm/parallel.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// x to the power a: |x|^a_re e^(-a_im t) at the angle a_re t + a_im log|x| for complex x with
/// angle t.
template <class T>
MIVO_FUNCTION T power(const T& x, const T& a) {
  if constexpr (kIsComplex<T>) {
    if (isZero(x)) return x;
    const auto logr = std::log(abs(x));
    const auto t = std::atan2(x.im, x.re);
    const auto modulus = std::exp(a.re * logr - a.im * t);
    const auto angle = a.re * t + a.im * logr;
    return T(modulus * std::cos(angle), modulus * std::sin(angle));
  } else {
    return powReal(x, a);
  }
}

/// Square root; integers go through double.
template <class R>
MIVO_FUNCTION R root(const R& x) {
  if constexpr (std::is_floating_point_v<R>) {
    return std::sqrt(x);
  } else {
    return static_cast<R>(std::sqrt(static_cast<double>(x)));
  }
}

/// Product and quotient with a real number, part by part.
template <class T>
MIVO_FUNCTION T timesReal(const T& a, const RealType<T>& r) {
  if constexpr (kIsComplex<T>) {
    return T(a.re * r, a.im * r);
  } else {
    return a * r;
  }
}
template <class T>
MIVO_FUNCTION T overReal(const T& a, const RealType<T>& r) {
  if constexpr (kIsComplex<T>) {
    return T(a.re / r, a.im / r);
  } else {
    return a / r;
  }
}

/// c |a|^2; for real numbers the products are taken from the left.
template <class T>
MIVO_FUNCTION RealType<T> scaledSquare(const RealType<T>& c, const T& a) {
  if constexpr (kIsComplex<T>) {
    return c * absSquared(a);
  } else {
    return c * a * a;
  }
}

/// Bodies of `BlasOps`, written once for all execution spaces: the same members with a space, which
/// may be the caller's own, in place of the device, whose memory the space has to reach.
template <class T, class I, class Space>
class BlasOpsImpl {
 public:
  using R = RealType<T>;
  using Policy = spm::RangePolicy<Space>;

  static void fill(Space& space, I n, T a, T* x);
  static void scal(Space& space, I n, T a, T* x);
  static void copy(Space& space, I n, const T* x, T* y);
  static void axpy(Space& space, I n, T a, const T* x, T* y);
  static void axpby(Space& space, I n, T a, const T* x, T b, T* y);
  static void axpbypz(Space& space, I n, T a, const T* x, T b, const T* y, T* z);
  static void axypbz(Space& space, I n, T a, const T* x, const T* y, T b, T* z);
  static void axpbypcz(Space& space, I n, T a, const T* x, T b, const T* y, T c, T* z);
  static void reciprocal(Space& space, I n, T a, T* x);
  static void pow(Space& space, I n, T a, T* x);
  static void get_nonzero_indices(Space& space, I n, const T* x, I* indices, I* count);
  static void get_real(Space& space, I n, const T* x, R* y);
  static void get_imag(Space& space, I n, const T* x, R* y);
  static void create_complex(Space& space, I n, const T* re, const T* im, Complex<T>* z);
  static T dot(Space& space, I n, const T* x, const T* y);
  static T dotu(Space& space, I n, const T* x, const T* y);
  static R abs_max(Space& space, I n, const T* x);
  static R abs_sum(Space& space, I n, const T* x, R p);
  static void min_max_sum(Space& space, I n, const T* x, T* min, T* max, T* sum);
  static void adamw_step(Space& space, I n, const T* g, T* x, T* m, R* v, R* vmax, T lr, R beta1,
                         R beta2, R eps, T weight_decay, I amsgrad, I step);
};

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::fill(Space& space, I n, T a, T* x) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { x[i] = a; });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::scal(Space& space, I n, T a, T* x) {
  if (isZero(a)) {
    spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { x[i] = T(0); });
  } else {
    spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { x[i] = x[i] * a; });
  }
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::copy(Space& space, I n, const T* x, T* y) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { y[i] = x[i]; });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::axpy(Space& space, I n, T a, const T* x, T* y) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { y[i] += x[i] * a; });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::axpby(Space& space, I n, T a, const T* x, T b, T* y) {
  if (isZero(b)) {
    spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { y[i] = x[i] * a; });
  } else {
    spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { y[i] = x[i] * a + y[i] * b; });
  }
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::axpbypz(Space& space, I n, T a, const T* x, T b, const T* y, T* z) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { z[i] += x[i] * a + y[i] * b; });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::axypbz(Space& space, I n, T a, const T* x, const T* y, T b, T* z) {
  if (isZero(b)) {
    spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { z[i] = (x[i] * a) * y[i]; });
  } else {
    spm::parallel_for(Policy(space, 0, n),
                      [=] MIVO_FUNCTION(I i) { z[i] = (x[i] * a) * y[i] + z[i] * b; });
  }
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::axpbypcz(Space& space, I n, T a, const T* x, T b, const T* y, T c,
                                        T* z) {
  if (isZero(c)) {
    spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { z[i] = x[i] * a + y[i] * b; });
  } else {
    spm::parallel_for(Policy(space, 0, n),
                      [=] MIVO_FUNCTION(I i) { z[i] = y[i] * b + x[i] * a + z[i] * c; });
  }
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::reciprocal(Space& space, I n, T a, T* x) {
  if (isZero(a)) {
    spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { x[i] = T(0); });
    return;
  }
  spm::parallel_for(Policy(space, 0, n),
                    [=] MIVO_FUNCTION(I i) { x[i] = isZero(x[i]) ? a : quotient(a, x[i]); });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::pow(Space& space, I n, T a, T* x) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { x[i] = power(x[i], a); });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::get_nonzero_indices(Space& space, I n, const T* x, I* indices,
                                                   I* count) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    I c = 0;
    for (I i = 0; i < n; ++i) {
      if (isZero(x[i])) continue;
      if (indices != nullptr) indices[c] = i;
      ++c;
    }
    *count = c;
  });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::get_real(Space& space, I n, const T* x, R* y) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { y[i] = realPart(x[i]); });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::get_imag(Space& space, I n, const T* x, R* y) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) { y[i] = imagPart(x[i]); });
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::create_complex(Space& space, I n, const T* re, const T* im,
                                              Complex<T>* z) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) {
    z[i].re = re != nullptr ? re[i] : T(0);
    z[i].im = im != nullptr ? im[i] : T(0);
  });
}

template <class T, class I, class Space>
T BlasOpsImpl<T, I, Space>::dot(Space& space, I n, const T* x, const T* y) {
  T result{};
  spm::parallel_reduce(
      Policy(space, 0, n), [=] MIVO_FUNCTION(I i, T & acc) { acc += conj(x[i]) * y[i]; },
      spm::Sum<T, Space>(result));
  return result;
}

template <class T, class I, class Space>
T BlasOpsImpl<T, I, Space>::dotu(Space& space, I n, const T* x, const T* y) {
  T result{};
  spm::parallel_reduce(
      Policy(space, 0, n), [=] MIVO_FUNCTION(I i, T & acc) { acc += x[i] * y[i]; },
      spm::Sum<T, Space>(result));
  return result;
}

template <class T, class I, class Space>
RealType<T> BlasOpsImpl<T, I, Space>::abs_max(Space& space, I n, const T* x) {
  R result{};
  spm::parallel_reduce(
      Policy(space, 0, n),
      [=] MIVO_FUNCTION(I i, R & acc) {
        const R a = abs(x[i]);
        if (a > acc) acc = a;
      },
      spm::Max<R, Space>(result));
  return result;
}

template <class T, class I, class Space>
RealType<T> BlasOpsImpl<T, I, Space>::abs_sum(Space& space, I n, const T* x, R p) {
  R result{};
  const spm::Sum<R, Space> reducer(result);
  if (p == R(1)) {
    spm::parallel_reduce(
        Policy(space, 0, n), [=] MIVO_FUNCTION(I i, R & acc) { acc += abs(x[i]); }, reducer);
  } else if (p == R(2)) {
    spm::parallel_reduce(
        Policy(space, 0, n), [=] MIVO_FUNCTION(I i, R & acc) { acc += absSquared(x[i]); }, reducer);
  } else {
    spm::parallel_reduce(
        Policy(space, 0, n), [=] MIVO_FUNCTION(I i, R & acc) { acc += powReal(abs(x[i]), p); },
        reducer);
  }
  return result;
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::min_max_sum(Space& space, I n, const T* x, T* min, T* max, T* sum) {
  if (min != nullptr) {
    spm::parallel_reduce(
        Policy(space, 0, n),
        [=] MIVO_FUNCTION(I i, T & acc) {
          if (lessByReal(x[i], acc)) acc = x[i];
        },
        spm::Min<T, Space>(*min));
  }
  if (max != nullptr) {
    spm::parallel_reduce(
        Policy(space, 0, n),
        [=] MIVO_FUNCTION(I i, T & acc) {
          if (lessByReal(acc, x[i])) acc = x[i];
        },
        spm::Max<T, Space>(*max));
  }
  if (sum != nullptr) {
    spm::parallel_reduce(
        Policy(space, 0, n), [=] MIVO_FUNCTION(I i, T & acc) { acc += x[i]; },
        spm::Sum<T, Space>(*sum));
  }
}

template <class T, class I, class Space>
void BlasOpsImpl<T, I, Space>::adamw_step(Space& space, I n, const T* g, T* x, T* m, R* v, R* vmax,
                                          T lr, R beta1, R beta2, R eps, T weight_decay, I amsgrad,
                                          I step) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) {
    // The formulas of integer types pass through double in the powers alone.
    const R t = static_cast<R>(step);
    x[i] = x[i] * (T(1) - lr * weight_decay);
    // m = (1 - beta1) g + beta1 m,  mhat = m / (1 - beta1^t)
    m[i] = timesReal(g[i], R(1) - beta1) + timesReal(m[i], beta1);
    const T mhat = overReal(m[i], R(1) - powReal(beta1, t));
    // v = beta2 v + (1 - beta2) |g|^2,  vhat = v / (1 - beta2^t)
    v[i] = beta2 * v[i] + scaledSquare(R(1) - beta2, g[i]);
    R vv = v[i];
    if (amsgrad != 0) {
      vmax[i] = v[i] > vmax[i] ? v[i] : vmax[i];
      vv = vmax[i];
    }
    const R vhat = vv / (R(1) - powReal(beta2, t));
    // x = x - lr mhat / (sqrt(vhat) + eps)
    x[i] = x[i] - overReal(lr * mhat, root(vhat) + eps);
  });
}

MIVO_CUDA_VALUES(BlasOpsImpl, int)
MIVO_CUDA_VALUES(BlasOpsImpl, long)

}  // namespace mivo
