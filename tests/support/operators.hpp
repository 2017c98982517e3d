// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParMatrixFree.hpp"
#include "mivo/operators/ParPreconditioner.hpp"
#include "tests/support/dense.hpp"
#include "tests/support/printed.hpp"

namespace mivo::test {

template <class T>
using ParVector = ParMatrixT<T, long, int>;

template <class T>
ParVector<T> parVectorOf(const Device& device, const std::vector<T>& values) {
  ParVector<T> out;
  out.createSeq(matrixOf<T>(device, static_cast<int>(values.size()), 1, values), kCommSelf);
  return out;
}

template <class T>
std::vector<T> valuesOf(const ParVector<T>& v) {
  return valuesOf(v.getLocalMatrix());
}

/// alpha A x + beta y for a row-major dense A, each row summed in order from 0.
template <class T>
std::vector<T> denseProduct(const std::vector<T>& A, T alpha, const std::vector<T>& x, T beta,
                            const std::vector<T>& y) {
  const std::size_t n = x.size();
  std::vector<T> out(n);
  for (std::size_t i = 0; i < n; ++i) {
    T sum(0);
    for (std::size_t j = 0; j < n; ++j) sum += A[i * n + j] * x[j];
    out[i] = isZero(beta) ? alpha * sum : alpha * sum + beta * y[i];
  }
  return out;
}

/// Matrix-free operator of one rank: a dense matrix that only shows its products, and counts them.
template <class T>
class DenseOperator : public ParMatrixFreeT<T, long, int> {
 public:
  using typename ParMatrixFreeT<T, long, int>::AsyncMatVecObject;

  DenseOperator(const Device& device, std::size_t n, std::vector<T> values)
      : device_(device), n_(static_cast<long>(n)), values_(std::move(values)) {}

  int getComm() const override { return kCommSelf; }
  Device getDevice() const override { return device_; }
  long getRows() const override { return n_; }
  long getCols() const override { return n_; }
  void aAxpby(T alpha, const ParVector<T>& x, T beta, ParVector<T>& y,
              AsyncMatVecObject*) override {
    ++products;
    const std::vector<T> result = denseProduct(values_, alpha, valuesOf(x), beta, valuesOf(y));
    Device().rawCopyTo(result.size() * sizeof(T), result.data(), device_,
                       y.getLocalMatrix().getData());
  }

  int products = 0;

 private:
  Device device_;
  long n_;
  std::vector<T> values_;
};

/// z = d .* r
template <class T>
class DiagonalPreconditioner : public ParPreconditionerT<T, long, int> {
 public:
  explicit DiagonalPreconditioner(ParVector<T> d) : d_(std::move(d)) {}
  void setup(const ParMatrixFreeT<T, long, int>&) override { ++setups; }
  void precondition(const ParVector<T>& r, ParVector<T>& z) override {
    ++applications;
    ParVector<T>::axypbz(T(1), d_, r, T(0), z);
  }

  int setups = 0;
  int applications = 0;

 private:
  ParVector<T> d_;
};

/// Row-major Hermitian positive definite matrix: the diagonal outweighs each row.
template <class T>
std::vector<T> positiveDefinite(std::size_t n, unsigned seed) {
  const std::vector<T> m = smallValues<T>(n * n, seed);
  std::vector<T> out(n * n);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      out[i * n + j] = m[i * n + j];
      out[j * n + i] = conj(m[i * n + j]);
    }
    out[i * n + i] = T(static_cast<RealType<T>>(14 * n + i % 7));
  }
  return out;
}

/// Solution of A x = b by elimination with pivoting.
template <class T>
std::vector<T> denseSolve(std::vector<T> A, std::vector<T> b) {
  const std::size_t n = b.size();
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t pivot = k;
    for (std::size_t i = k; i < n; ++i) {
      if (abs(A[i * n + k]) > abs(A[pivot * n + k])) pivot = i;
    }
    for (std::size_t j = 0; j < n; ++j) std::swap(A[k * n + j], A[pivot * n + j]);
    std::swap(b[k], b[pivot]);
    for (std::size_t i = k + 1; i < n; ++i) {
      const T factor = A[i * n + k] / A[k * n + k];
      for (std::size_t j = k; j < n; ++j) A[i * n + j] -= factor * A[k * n + j];
      b[i] -= factor * b[k];
    }
  }
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = i + 1; j < n; ++j) b[i] -= A[i * n + j] * b[j];
    b[i] /= A[i * n + i];
  }
  return b;
}

/// Elements agree but for a few roundings.
template <class T>
void expectNear(const std::vector<T>& a, const std::vector<T>& b) {
  ASSERT_EQ(a.size(), b.size());
  const RealType<T> eps = std::numeric_limits<RealType<T>>::epsilon();
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_LE(abs(a[i] - b[i]), 256 * eps * (1 + abs(b[i]))) << i << ": " << a[i] << ", " << b[i];
  }
}

/// Times are the only part of the texts that differs from run to run.
inline std::string withoutTimes(const std::string& text) {
  static const std::regex time("(solve_time|precond_setup|precond) [0-9.e+-]+");
  return std::regex_replace(text, time, "$1 T");
}

}  // namespace mivo::test
