// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <ostream>

#include "mivo/spm/function.hpp"
#include "mivo/utils/export.hpp"

namespace mivo {

/// Complex number for host and device code, laid out as an array of two T (real part first), so
/// that arrays of it can be handed to kernels, messages and foreign libraries as plain memory.
/// T is float or double; `BlasOps::create_complex` also nests it.
template <class T>
struct MIVO_API Complex {
  T re{};
  T im{};

  Complex() = default;
  MIVO_FUNCTION Complex(const T& real) : re(real) {}
  MIVO_FUNCTION Complex(const T& real, const T& imag) : re(real), im(imag) {}
  /// Conversion between precisions.
  template <class U>
  MIVO_FUNCTION Complex(const Complex<U>& z) : re(static_cast<T>(z.re)), im(static_cast<T>(z.im)) {}

  MIVO_FUNCTION Complex& operator+=(const Complex& b) { return *this = *this + b; }
  MIVO_FUNCTION Complex& operator-=(const Complex& b) { return *this = *this - b; }
  MIVO_FUNCTION Complex& operator*=(const Complex& b) { return *this = *this * b; }
  MIVO_FUNCTION Complex& operator/=(const Complex& b) { return *this = *this / b; }

  friend MIVO_FUNCTION Complex operator-(const Complex& a) { return {-a.re, -a.im}; }
  friend MIVO_FUNCTION Complex operator+(const Complex& a, const Complex& b) {
    return {a.re + b.re, a.im + b.im};
  }
  friend MIVO_FUNCTION Complex operator-(const Complex& a, const Complex& b) {
    return {a.re - b.re, a.im - b.im};
  }
  friend MIVO_FUNCTION Complex operator*(const Complex& a, const Complex& b) {
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
  }
  /// Scaled by the larger part of b (Smith 1962), whose square may not fit the type; a sum of parts
  /// has to. A quotient of real numbers with b not 0 is that of T, but for the sign of a zero.
  friend MIVO_FUNCTION Complex operator/(const Complex& a, const Complex& b) {
    if (std::fabs(b.re) >= std::fabs(b.im)) {
      const T ratio = b.im / b.re;
      const T den = b.re + b.im * ratio;
      return {(a.re + a.im * ratio) / den, (a.im - a.re * ratio) / den};
    }
    const T ratio = b.re / b.im;
    const T den = b.re * ratio + b.im;
    return {(a.re * ratio + a.im) / den, (a.im * ratio - a.re) / den};
  }
  friend MIVO_FUNCTION bool operator==(const Complex& a, const Complex& b) {
    return a.re == b.re && a.im == b.im;
  }
  friend MIVO_FUNCTION bool operator!=(const Complex& a, const Complex& b) { return !(a == b); }

  /// Text form "(re,im)" for logs; matrix files have their own.
  friend std::ostream& operator<<(std::ostream& os, const Complex& z) {
    return os << '(' << z.re << ',' << z.im << ')';
  }
};

}  // namespace mivo
