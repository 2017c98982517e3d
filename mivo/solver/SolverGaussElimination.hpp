// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/TickMeter.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Dense LU of the whole system on rank 0, registered as "SolverGaussElim".
///
/// For small systems, such as the coarsest level of multigrid; not for anything large: rank 0 holds
/// n^2 values and does 2/3 n^3 operations, anew at each solve. There is no pivoting, so A should be
/// positive definite or diagonally dominant: a zero pivot is not reported and leaves infinities or
/// NaN in x.
///
/// A must be a `ParCSRMatrixT`, anything else is a fatal check; b has one column. The
/// preconditioner and the keys "rtol" and "max_its" have no effect, `iter` and `relres` are left
/// alone. x of size 0 is created in the column partition of A. With "verbose" 1 the last line tells
/// the residual, which costs a product; above 1 there are the times too. Collective, in two gathers
/// and a scatter.
template <class T, class G, class L>
class MIVO_API SolverGaussElimination_T : public ParSolverT<T, G, L> {
 public:
  using Base = ParSolverT<T, G, L>;
  using Base::create;
  using Base::solve;
  using typename Base::Operator;
  using typename Base::Preconditioner;
  using typename Base::R;
  using typename Base::Vector;

  TickMeter factorTime;  ///< factorisations, summed over all solves
  TickMeter sweepTime;   ///< triangular solves, summed over all solves

  ~SolverGaussElimination_T() override;

  void create(const json& params);
  /// Does nothing: the matrix of the solve counts, and it may change in between.
  void setup(const Operator& A) override;
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;

 private:
  void solveOnRankZero(const ParCSRMatrixT<T, G, L>& A, const Vector& b, Vector& x);
};

MIVO_EXTERN_SCALARS(SolverGaussElimination_T, long, int)

}  // namespace mivo
