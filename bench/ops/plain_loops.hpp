// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "mivo/utils/ScalarTraits.hpp"

/// Hand-written loops with the traffic of the vector and sparse kernels, to time beside them. Not
/// inlined, so that the compiler sees neither sizes nor scalars, as in the library.
namespace mivo::bench::plain {

#define MIVO_PLAIN   \
  template <class T> \
  __attribute__((noinline))

MIVO_PLAIN void fill(int n, T a, T* __restrict x) {
  for (int i = 0; i < n; ++i) x[i] = a;
}
MIVO_PLAIN void scal(int n, T a, T* __restrict x) {
  for (int i = 0; i < n; ++i) x[i] = x[i] * a;
}
MIVO_PLAIN void copy(int n, const T* __restrict x, T* __restrict y) {
  for (int i = 0; i < n; ++i) y[i] = x[i];
}
MIVO_PLAIN void axpy(int n, T a, const T* __restrict x, T* __restrict y) {
  for (int i = 0; i < n; ++i) y[i] = y[i] + x[i] * a;
}
MIVO_PLAIN void axpby(int n, T a, const T* __restrict x, T b, T* __restrict y) {
  for (int i = 0; i < n; ++i) y[i] = x[i] * a + y[i] * b;
}
MIVO_PLAIN void axpbypz(int n, T a, const T* __restrict x, T b, const T* __restrict y,
                        T* __restrict z) {
  for (int i = 0; i < n; ++i) z[i] = z[i] + (x[i] * a + y[i] * b);
}
MIVO_PLAIN void axypbz(int n, T a, const T* __restrict x, const T* __restrict y, T b,
                       T* __restrict z) {
  for (int i = 0; i < n; ++i) z[i] = (x[i] * a) * y[i] + z[i] * b;
}
MIVO_PLAIN void axpbypcz(int n, T a, const T* __restrict x, T b, const T* __restrict y, T c,
                         T* __restrict z) {
  for (int i = 0; i < n; ++i) z[i] = y[i] * b + x[i] * a + z[i] * c;
}
MIVO_PLAIN void reciprocal(int n, T a, T* __restrict x) {
  for (int i = 0; i < n; ++i) x[i] = x[i] == T(0) ? a : a / x[i];
}
MIVO_PLAIN void realPart(int n, const T* __restrict x, RealType<T>* __restrict y) {
  for (int i = 0; i < n; ++i) y[i] = mivo::realPart(x[i]);
}
/// sum += a, part by part: a complex sum stays in two registers.
template <class T>
inline void accumulate(T& sum, const T& a) {
  if constexpr (kIsComplex<T>) {
    sum.re += a.re;
    sum.im += a.im;
  } else {
    sum += a;
  }
}
MIVO_PLAIN T dot(int n, const T* __restrict x, const T* __restrict y) {
  T sum(0);
  for (int i = 0; i < n; ++i) accumulate(sum, conj(x[i]) * y[i]);
  return sum;
}
MIVO_PLAIN T dotu(int n, const T* __restrict x, const T* __restrict y) {
  T sum(0);
  for (int i = 0; i < n; ++i) accumulate(sum, x[i] * y[i]);
  return sum;
}
MIVO_PLAIN RealType<T> absSum(int n, const T* __restrict x) {
  RealType<T> sum(0);
  for (int i = 0; i < n; ++i) sum = sum + abs(x[i]);
  return sum;
}
MIVO_PLAIN RealType<T> squareSum(int n, const T* __restrict x) {
  RealType<T> sum(0);
  for (int i = 0; i < n; ++i) sum = sum + absSquared(x[i]);
  return sum;
}
MIVO_PLAIN RealType<T> absMax(int n, const T* __restrict x) {
  RealType<T> largest(0);
  for (int i = 0; i < n; ++i) largest = abs(x[i]) > largest ? abs(x[i]) : largest;
  return largest;
}
MIVO_PLAIN T sum(int n, const T* __restrict x) {
  T sum(0);
  for (int i = 0; i < n; ++i) accumulate(sum, x[i]);
  return sum;
}
MIVO_PLAIN int countNonZero(int n, const T* __restrict x) {
  int count = 0;
  for (int i = 0; i < n; ++i) count += x[i] != T(0) ? 1 : 0;
  return count;
}

/// y = alpha A x + beta y, row by row.
MIVO_PLAIN void spmv(T alpha, int rows, const int* __restrict rowptr, const int* __restrict col_idx,
                     const T* __restrict values, const T* __restrict x, T beta, T* __restrict y) {
  for (int i = 0; i < rows; ++i) {
    T sum(0);
    for (int k = rowptr[i]; k < rowptr[i + 1]; ++k) sum = sum + values[k] * x[col_idx[k]];
    y[i] = beta == T(0) ? sum * alpha : sum * alpha + y[i] * beta;
  }
}

/// y += (b - A x) omega / diagonal
MIVO_PLAIN void jacobi(int rows, const int* __restrict rowptr, const int* __restrict col_idx,
                       const T* __restrict values, const T* __restrict x, const T* __restrict b,
                       T* __restrict y, T omega) {
  for (int i = 0; i < rows; ++i) {
    T sum(0);
    T diagonal(1);
    for (int k = rowptr[i]; k < rowptr[i + 1]; ++k) {
      sum = sum + values[k] * x[col_idx[k]];
      if (col_idx[k] == i) diagonal = values[k];
    }
    y[i] = y[i] + (b[i] - sum) * omega / diagonal;
  }
}

/// One forward sweep of successive over-relaxation.
MIVO_PLAIN void sor(int rows, const int* __restrict rowptr, const int* __restrict col_idx,
                    const T* __restrict values, const T* __restrict b, T* x, T omega) {
  for (int i = 0; i < rows; ++i) {
    T sum = b[i];
    T diagonal(1);
    for (int k = rowptr[i]; k < rowptr[i + 1]; ++k) {
      if (col_idx[k] == i) {
        diagonal = values[k];
      } else {
        sum = sum - values[k] * x[col_idx[k]];
      }
    }
    x[i] = sum * omega / diagonal + x[i] * (T(1) - omega);
  }
}

#undef MIVO_PLAIN

}  // namespace mivo::bench::plain
