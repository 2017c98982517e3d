// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

#include "mivo/ops/matrix_offset.hpp"
#include "mivo/utils/ScalarTraits.hpp"

/// Direct factorisations of small dense matrices, each one serial task on a matrix in memory of the
/// calling space. Gaussian elimination and its kin as in Golub and Van Loan, Matrix Computations
/// (4th ed., 2013), sections 3.2, 3.4 and 4.1; the inverse from the factors is method D of Higham,
/// Accuracy and Stability of Numerical Algorithms (2nd ed., 2002), section 14.3.
namespace mivo::dense {

/// Matrix in the order of `Layout` with leading dimension `ld`.
template <class T, class I, class Layout>
struct View {
  using value_type = std::remove_const_t<T>;

  T* data;
  I ld;

  MIVO_FUNCTION T& operator()(I i, I j) const { return data[matrixOffset<Layout>(i, j, ld)]; }
};

/// a / b, and 0 for an integer b of 0, which a processor would refuse.
template <class T>
MIVO_FUNCTION T ratio(const T& a, const T& b) {
  if constexpr (std::is_integral_v<T>) {
    return b == 0 ? T(0) : a / b;
  } else {
    return a / b;
  }
}

/// y_k -= f x_k for k in [0, n)
template <class T, class I>
MIVO_FUNCTION void subtractMultiple(I n, T f, const T* x, T* y) {
  for (I k = 0; k < n; ++k) y[k] -= f * x[k];
}

/// a_ik -= a_ij a_jk for i > j in rows [j + 1, m), k in [j + 1, n): the step of an elimination.
/// The loop over consecutive elements is the inner one.
template <class T, class I, class Layout>
MIVO_FUNCTION void eliminateBlock(View<T, I, Layout> a, I m, I n, I j) {
  if constexpr (std::is_same_v<Layout, MatrixLayoutRowMajor>) {
    if (j + 1 >= n) return;
    for (I i = j + 1; i < m; ++i)
      subtractMultiple<T, I>(n - j - 1, a(i, j), &a(j, j + 1), &a(i, j + 1));
  } else {
    if (j + 1 >= m) return;
    for (I k = j + 1; k < n; ++k)
      subtractMultiple<T, I>(m - j - 1, a(j, k), &a(j + 1, j), &a(j + 1, k));
  }
}

template <class T, class I, class Layout>
MIVO_FUNCTION void swapRows(View<T, I, Layout> a, I n, I i, I j) {
  for (I k = 0; k < n; ++k) {
    const T kept = a(i, k);
    a(i, k) = a(j, k);
    a(j, k) = kept;
  }
}

/// P A = L U by columns, with row exchanges when `ipiv` is given. Returns the column of a zero
/// pivot, -1 when there is none.
template <class T, class I, class Layout>
MIVO_FUNCTION I luFactor(View<T, I, Layout> a, I m, I n, I* ipiv) {
  const I steps = m < n ? m : n;
  for (I j = 0; j < steps; ++j) {
    if (ipiv != nullptr) {
      I pivot = j;
      RealType<T> largest = abs(a(j, j));
      for (I i = j + 1; i < m; ++i) {
        const RealType<T> size = abs(a(i, j));
        if (size > largest) {
          largest = size;
          pivot = i;
        }
      }
      ipiv[j] = pivot;
      if (largest == 0) return j;  // the modulus of a complex element may vanish before its parts
      if (pivot != j) swapRows(a, n, j, pivot);
    }
    if (isZero(a(j, j))) return j;
    for (I i = j + 1; i < m; ++i) a(i, j) = ratio(a(i, j), a(j, j));
    eliminateBlock(a, m, n, j);
  }
  return -1;
}

/// b = U^-1 L^-1 b for the unit lower and the upper triangle in a; column c of b.
template <class Matrix, class Rhs, class I>
MIVO_FUNCTION void luSolve(Matrix a, I n, Rhs b, I c) {
  using T = typename Rhs::value_type;
  for (I i = 0; i < n; ++i) {
    T sum = b(i, c);
    for (I k = 0; k < i; ++k) sum -= a(i, k) * b(k, c);
    b(i, c) = sum;
  }
  for (I i = n - 1; i >= 0; --i) {
    T sum = b(i, c);
    for (I k = i + 1; k < n; ++k) sum -= a(i, k) * b(k, c);
    b(i, c) = ratio<T>(sum, a(i, i));
  }
}

/// b = P b by the exchanges of `luFactor`, then `luSolve` of each column.
template <class Matrix, class Rhs, class I>
MIVO_FUNCTION void luSolveAll(Matrix a, I n, I nrhs, const I* ipiv, Rhs b) {
  if (ipiv != nullptr) {
    for (I i = 0; i < n; ++i) {
      if (ipiv[i] > i) swapRows(b, nrhs, i, ipiv[i]);
    }
  }
  for (I c = 0; c < nrhs; ++c) luSolve(a, n, b, c);
}

/// a = A^-1 = U^-1 L^-1 P from the factors in a, in place and without scratch.
template <class T, class I, class Layout>
MIVO_FUNCTION void luInverse(View<T, I, Layout> a, I n, const I* ipiv) {
  // U^-1: column j is -(U^-1 of the leading block) u_j / u_jj
  for (I j = 0; j < n; ++j) {
    a(j, j) = ratio(T(1), a(j, j));
    for (I i = 0; i < j; ++i) {
      T sum = a(i, i) * a(i, j);
      for (I k = i + 1; k < j; ++k) sum += a(i, k) * a(k, j);
      a(i, j) = -sum * a(j, j);
    }
  }
  // L^-1, unit diagonal: column j from the right, (L^-1)_ij = -(l_ij + sum (L^-1)_ik l_kj)
  for (I j = n - 1; j >= 0; --j) {
    for (I i = n - 1; i > j; --i) {
      T sum = a(i, j);
      for (I k = j + 1; k < i; ++k) sum += a(i, k) * a(k, j);
      a(i, j) = -sum;
    }
  }
  // x_ij = sum over k >= max(i, j) of (U^-1)_ik (L^-1)_kj: rows downwards, to the right in a row,
  // so that each element is overwritten after its last use.
  for (I i = 0; i < n; ++i) {
    for (I j = 0; j < n; ++j) {
      const I first = i > j ? i : j;
      T sum = i > j ? a(i, i) * a(i, j) : a(i, j);
      for (I k = first + 1; k < n; ++k) sum += a(i, k) * a(k, j);
      a(i, j) = sum;
    }
  }
  if (ipiv == nullptr) return;
  for (I j = n - 1; j >= 0; --j) {
    if (ipiv[j] == j) continue;
    for (I i = 0; i < n; ++i) {
      const T kept = a(i, j);
      a(i, j) = a(i, ipiv[j]);
      a(i, ipiv[j]) = kept;
    }
  }
}

/// A = L D L' in the lower triangle, which alone is read; ' is the conjugate transpose when
/// `hermitian`, the plain one otherwise. Returns 1 at a zero pivot, else 0.
template <class T, class I, class Layout>
MIVO_FUNCTION int ldlFactor(View<T, I, Layout> a, I n, bool hermitian) {
  for (I j = 0; j < n; ++j) {
    const T d = a(j, j);
    if (isZero(d)) return 1;
    // Upwards, so that row i still finds a_kj = l_kj d_j of the rows above it.
    for (I i = n - 1; i > j; --i) {
      const T l = ratio(a(i, j), d);
      for (I k = j + 1; k <= i; ++k) a(i, k) -= l * (hermitian ? conj(a(k, j)) : a(k, j));
      a(i, j) = l;
    }
  }
  return 0;
}

/// b = L'^-1 D^-1 L^-1 b for the factors of `ldlFactor`.
template <class T, class I, class Layout>
MIVO_FUNCTION void ldlSolve(View<T, I, Layout> a, I n, T* b, bool hermitian) {
  for (I i = 0; i < n; ++i) {
    for (I k = 0; k < i; ++k) b[i] -= a(i, k) * b[k];
  }
  for (I i = 0; i < n; ++i) b[i] = ratio(b[i], a(i, i));
  for (I i = n - 1; i >= 0; --i) {
    for (I k = i + 1; k < n; ++k) b[i] -= (hermitian ? conj(a(k, i)) : a(k, i)) * b[k];
  }
}

/// b = A^-1 b by elimination without row exchanges, a overwritten. A zero diagonal element passes
/// over its column; where it is still zero in the back substitution b keeps what stands there.
/// Returns 1 in this case, else 0.
template <class T, class I, class Layout>
MIVO_FUNCTION int gaussElim(View<T, I, Layout> a, I n, T* b) {
  for (I j = 0; j < n; ++j) {
    if (isZero(a(j, j))) continue;
    for (I i = j + 1; i < n; ++i) {
      if (isZero(a(i, j))) continue;
      const T f = a(i, j) / a(j, j);
      for (I k = j; k < n; ++k) a(i, k) -= f * a(j, k);
      b[i] -= f * b[j];
    }
  }
  int status = 0;
  for (I i = n - 1; i >= 0; --i) {
    for (I k = i + 1; k < n; ++k) b[i] -= a(i, k) * b[k];
    if (isZero(a(i, i))) {
      status = 1;
    } else {
      b[i] = b[i] / a(i, i);
    }
  }
  return status;
}

}  // namespace mivo::dense
