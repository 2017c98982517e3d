// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "mivo/operators/ParMatrixFree.hpp"
#include "mivo/operators/ParPreconditioner.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "tests/support/parsparse.hpp"
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

/// Square matrix of one rank from row-major values.
template <class T>
ParSparse<T> parCsrOf(const Device& device, int n, const std::vector<T>& dense) {
  return parSparseOf(device, HostCsr<T>::fromDense(n, n, dense), kCommSelf);
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
    const std::vector<T> result = denseAxpby(values_, alpha, valuesOf(x), beta, valuesOf(y));
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

/// A registered preconditioner of the given class.
template <class Class, class T>
std::shared_ptr<Class> makePreconditioner(const std::string& name, const json& params = json()) {
  return std::dynamic_pointer_cast<Class>(
      ParPreconditionerT<T, long, int>::getFactory().createInstance(
          {{"preconditioner_type", name}, {name + "_params", params}}));
}

/// What a solve of one rank leaves and prints.
struct Outcome {
  int iter = -7;
  double relres = -7;
  std::vector<double> x;
  std::string text;
};

template <class Solver>
Outcome solved(Solver& solver, ParMatrixFreeT<double, long, int>& A, const std::vector<double>& b,
               const std::vector<double>& start) {
  Outcome out;
  auto x = parVectorOf(Device(), start);
  const auto rhs = parVectorOf(Device(), b);
  out.text = printed([&] { solver.solve(A, rhs, x, out.iter, out.relres); });
  out.x = valuesOf(x);
  return out;
}

/// z after `op` has been applied to r.
template <class T, class Preconditioner>
std::vector<T> preconditioned(Preconditioner& op, const std::vector<T>& r, std::vector<T> z,
                              const Device& device = Device()) {
  auto out = parVectorOf(device, z);
  op.precondition(parVectorOf(device, r), out);
  return valuesOf(out);
}

/// Times are the only part of the texts that differs from run to run.
inline std::string withoutTimes(const std::string& text) {
  static const std::regex time("(solve_time|precond_setup|precond) [0-9.e+-]+");
  return std::regex_replace(text, time, "$1 T");
}

}  // namespace mivo::test
