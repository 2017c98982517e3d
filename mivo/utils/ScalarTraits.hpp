// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <type_traits>

#include "mivo/utils/Complex.hpp"

namespace mivo {

template <class T>
struct RealOf {
  using type = T;
};
template <class T>
struct RealOf<Complex<T>> {
  using type = T;
};
/// The real type R that goes with a value type T: float and double for the complex types, T itself
/// otherwise.
template <class T>
using RealType = typename RealOf<T>::type;

template <class T>
struct IsComplex : std::false_type {};
template <class T>
struct IsComplex<Complex<T>> : std::true_type {};
template <class T>
constexpr bool kIsComplex = IsComplex<T>::value;

template <class T>
MIVO_FUNCTION RealType<T> realPart(const T& a) {
  if constexpr (kIsComplex<T>) {
    return a.re;
  } else {
    return a;
  }
}

template <class T>
MIVO_FUNCTION RealType<T> imagPart(const T& a) {
  if constexpr (kIsComplex<T>) {
    return a.im;
  } else {
    return RealType<T>{};
  }
}

/// Complex conjugate; a real number is its own.
template <class T>
MIVO_FUNCTION T conj(const T& a) {
  if constexpr (kIsComplex<T>) {
    return {a.re, -a.im};
  } else {
    return a;
  }
}

/// re * re + im * im, without the root.
template <class T>
MIVO_FUNCTION RealType<T> absSquared(const T& a) {
  if constexpr (kIsComplex<T>) {
    return a.re * a.re + a.im * a.im;
  } else {
    return a * a;
  }
}

/// Absolute value; for complex numbers sqrt(re * re + im * im), with no guard against overflow.
template <class T>
MIVO_FUNCTION RealType<T> abs(const T& a) {
  if constexpr (kIsComplex<T>) {
    return std::sqrt(a.re * a.re + a.im * a.im);
  } else if constexpr (std::is_floating_point_v<T>) {
    return std::fabs(a);
  } else {
    return a < 0 ? -a : a;
  }
}

/// Exact test: NaN is not zero, a complex number is zero when both of its parts are.
template <class T>
MIVO_FUNCTION bool isZero(const T& a) {
  return a == T(0);
}

/// Order by the real part; complex numbers have no operator for it on purpose.
template <class T>
MIVO_FUNCTION bool lessByReal(const T& a, const T& b) {
  return realPart(a) < realPart(b);
}

/// a / x; a complex quotient goes through the reciprocal of the squared modulus.
template <class T>
MIVO_FUNCTION T quotient(const T& a, const T& x) {
  if constexpr (kIsComplex<T>) {
    const RealType<T> scale = RealType<T>(1) / (x.re * x.re + x.im * x.im);
    const T product = a * conj(x);
    return T(product.re * scale, product.im * scale);
  } else {
    return a / x;
  }
}

/// Standard library power; integers go through double and are truncated.
template <class R>
MIVO_FUNCTION R powReal(const R& base, const R& exponent) {
  if constexpr (std::is_floating_point_v<R>) {
    return std::pow(base, exponent);
  } else {
    return static_cast<R>(std::pow(static_cast<double>(base), static_cast<double>(exponent)));
  }
}

}  // namespace mivo
