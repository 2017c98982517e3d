// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

#include "mivo/spm/impls/OpenMP.hpp"
#include "mivo/utils/ScalarTraits.hpp"

namespace mivo::spm {

namespace detail {

/// Keeps a parameter out of the deduction of T.
template <class T>
struct Same {
  using type = T;
};

/// What a minimum and a maximum start from. Complex numbers compare by their real part and start at
/// 0, so that their minimum and maximum include zero. For float and double a maximum starts at the
/// smallest positive normal number, not at the most negative one, and so comes out as that tiny
/// number when all others are negative.
template <class T>
T startOfMin() {
  if constexpr (kIsComplex<T>) {
    return T(0);
  } else {
    return std::numeric_limits<T>::max();
  }
}
template <class T>
T startOfMax() {
  if constexpr (kIsComplex<T>) {
    return T(0);
  } else {
    return std::numeric_limits<T>::min();
  }
}

}  // namespace detail

/// Reducers of `parallel_reduce`: where the result goes, the initial value of each partial result,
/// and the combining step.
template <class T, class Space = OpenMP>
struct Sum {
  using value_type = T;
  T& value;
  T identity;

  explicit Sum(T& result, const typename detail::Same<T>::type& start = T(0))
      : value(result), identity(start) {}
  static MIVO_FUNCTION void join(T& a, const T& b) { a = a + b; }
};

template <class T, class Space = OpenMP>
struct Min {
  using value_type = T;
  T& value;
  T identity;

  explicit Min(T& result, const typename detail::Same<T>::type& start = detail::startOfMin<T>())
      : value(result), identity(start) {}
  static MIVO_FUNCTION void join(T& a, const T& b) {
    if (lessByReal(b, a)) a = b;
  }
};

template <class T, class Space = OpenMP>
struct Max {
  using value_type = T;
  T& value;
  T identity;

  explicit Max(T& result, const typename detail::Same<T>::type& start = detail::startOfMax<T>())
      : value(result), identity(start) {}
  static MIVO_FUNCTION void join(T& a, const T& b) {
    if (lessByReal(a, b)) a = b;
  }
};

}  // namespace mivo::spm
