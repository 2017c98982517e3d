// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mivo/operators/ParLevelTransfer.hpp"
#include "mivo/precond/ParPreconditionerAMG.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/parsparse.hpp"
#include "tests/support/poisson.hpp"

// For the tests of multigrid.
namespace mivo::test {

/// Rows 2j and 2j + 1 of the whole matrix make the coarse unknown j, whatever the ranks; P is 1
/// there and R = `factor` P^T. The owner of row 2j owns j, so that pairs may span two ranks.
/// Registered as "TestPairs".
template <class T>
class PairsTransfer : public ParLevelTransferT<T, long, int> {
 public:
  using Matrix = ParCSRMatrixT<T, long, int>;

  double factor = 1;
  int empty_from = 1000;      ///< level from which P and R are empty objects
  int uncoupled_from = 1000;  ///< level from which no row has a coarse unknown

  void create(const json& params) {
    readJsonKey(params, "factor", factor);
    readJsonKey(params, "empty_from", empty_from);
    readJsonKey(params, "uncoupled_from", uncoupled_from);
  }

  void transfer_operators(const Matrix& A, Matrix& P, Matrix& R) override {
    if (this->levelId >= empty_from) return;
    const bool uncoupled = this->levelId >= uncoupled_from;
    const auto& rows = A.getRowPartitioner();
    PartitionerT<long, int> cols;
    if (uncoupled) {
      cols.create(0, rows.getNumParts());
    } else {
      std::vector<long> offsets = rows.getOffsets();
      for (long& offset : offsets) offset = (offset + 1) / 2;
      cols.create(offsets.back(), offsets);
    }
    P.create(rows, cols, {}, A.getDevice(), A.getComm());
    long begin = 0, end = 0;
    A.getOwnerShipRange(&begin, &end);
    if (!uncoupled) {
      P.beginAssemble();
      for (long i = begin; i < end; ++i) P.setValue(i, i / 2, T(1), SetValueMode::Set);
      P.endAssemble();
    }
    R = P.transpose();
    Matrix::scale(R, T(static_cast<RealType<T>>(factor)));
  }
};

template <class T>
using Amg = ParPreconditionerAMG_T<T, long, int>;

/// Parameters of a hierarchy of pairs with damped Jacobi smoothing; those of `params` go before.
inline json pairsParams(const json& params = json::object()) {
  json out = {{"level_transfer", {{"level_transfer_type", "TestPairs"}}},
              {"pre_smoother", smootherOf("SmootherJacobi", {{"relax", 0.5}})},
              {"post_smoother", smootherOf("SmootherJacobi", {{"relax", 0.75}})}};
  out.update(params);
  return out;
}

template <class T>
void registerPairs() {
  static const FactoryRegisterer<ParLevelTransferT<T, long, int>, PairsTransfer<T>> registered(
      "ParLevelTransferT", "TestPairs");
}

template <class T>
std::shared_ptr<Amg<T>> makeAmg(const json& params) {
  registerPairs<T>();
  return std::dynamic_pointer_cast<Amg<T>>(ParSolverT<T, long, int>::getFactory().createInstance(
      {{"solver_type", "SolverAMG"}, {"SolverAMG_params", params}}));
}

/// Five-point Laplacian on width x height points with zero values around them, symmetric positive
/// definite.
template <class T>
HostCsr<T> laplacian(int width, int height) {
  return HostCsr<T>::build(width * height, width * height, [&](int i, HostCsr<T>& out) {
    if (i >= width) out.push(i - width, T(-1));
    if (i % width > 0) out.push(i - 1, T(-1));
    out.push(i, T(height > 1 ? 4 : 2));
    if (i % width + 1 < width) out.push(i + 1, T(-1));
    if (i + width < width * height) out.push(i + width, T(-1));
  });
}

/// Iterations of conjugate gradients with multigrid to 1e-8 |b| on one rank's Poisson system of n
/// points in each direction, from zero; a large number if they do not get there.
inline int multigridIterations(int dim, int n, const json& params, double* complexity = nullptr) {
  Poisson<double> s({{"dim", dim}, {"N", n}}, Device(), kCommSelf);
  const auto solver = ParSolverT<double, long, int>::getFactory().createInstance(solverOf(
      "SolverPCG", {{"max_its", 400}, {"preconditioner", precondOf("PrecondAMG", params)}}));
  solver->preconditioner->setup(s.A);
  s.x.fill(0);
  int iterations = -1;
  double relres = 1;
  solver->solve(s.A, s.b, s.x, iterations, relres);
  if (complexity != nullptr) {
    *complexity = 0;
    for (const auto& level : dynamic_cast<Amg<double>&>(*solver->preconditioner).levels) {
      *complexity += static_cast<double>(level.A.getNnzs()) / static_cast<double>(s.A.getNnzs());
    }
  }
  const double r = ParMatrixT<double, long, int>::residual(s.A, s.x, s.b);
  EXPECT_GT(iterations, 0);
  return r < 2e-8 * ParMatrixT<double, long, int>::normL2(s.b) ? iterations : 1 << 20;
}

}  // namespace mivo::test
