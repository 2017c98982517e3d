// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

#include "mivo/utils/ScalarTraits.hpp"

namespace mivo::spm {

/// Reducers of `parallel_reduce`: where the result goes, the initial value of each partial result,
/// and the combining step. Complex numbers compare by their real part and start at 0, so their
/// minimum and maximum include zero.
template <class T, class Space>
struct Sum {
  using value_type = T;
  T& value;
  T identity;

  explicit Sum(T& result, const T& start = T(0)) : value(result), identity(start) {}
  static MIVO_FUNCTION void join(T& a, const T& b) { a = a + b; }
};

template <class T, class Space>
struct Min {
  using value_type = T;
  T& value;
  T identity;

  explicit Min(T& result) : value(result), identity(start()) {}
  static MIVO_FUNCTION void join(T& a, const T& b) {
    if (lessByReal(b, a)) a = b;
  }
  static T start() {
    if constexpr (kIsComplex<T>) {
      return T(0);
    } else {
      return std::numeric_limits<T>::max();
    }
  }
};

/// For float and double the start is the smallest positive normal number, not the most negative
/// one: a maximum over negative numbers only comes out as that tiny positive number.
template <class T, class Space>
struct Max {
  using value_type = T;
  T& value;
  T identity;

  explicit Max(T& result) : value(result), identity(start()) {}
  static MIVO_FUNCTION void join(T& a, const T& b) {
    if (lessByReal(a, b)) a = b;
  }
  static T start() {
    if constexpr (kIsComplex<T>) {
      return T(0);
    } else {
      return std::numeric_limits<T>::min();
    }
  }
};

}  // namespace mivo::spm
