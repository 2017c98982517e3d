// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// SYMMLQ (Paige and Saunders, Solution of sparse indefinite systems of linear equations, SIAM J.
/// Numer. Anal. 12, 1975), registered as "SolverSYMMLQ".
///
/// For A symmetric, definite or not, with a symmetric positive definite preconditioner; not for
/// singular systems. Its scalars are real parts of inner products: a complex A should be Hermitian.
/// It walks along the LQ points, and moves to the point of conjugate gradients once, when it ends:
/// only then is x of use.
///
/// It has the keys of the frame. It ends when rtol > |r| / |r0|, where |r0| is |b - A x| at the
/// start and |r| an estimate for the conjugate gradient point that begins as |M r0|, the norm of
/// the preconditioned residual: a preconditioner that scales changes what rtol means. `relres`
/// is the last |r| / |r0|, 0/0 when x was exact. "max_its" 0 does one iteration, as 1 does. A line
/// is printed when the Lanczos process ends; an indefinite preconditioner ends the run silently.
///
/// Cost of an iteration: a product, an application of the preconditioner, two reductions; beside
/// those 19 vectors are read or written. Nine work vectors live during a solve.
template <class T, class G, class L>
class MIVO_API SolverSYMMLQ_T : public ParSolverT<T, G, L> {
 public:
  using Base = ParSolverT<T, G, L>;
  using Base::create;
  using Base::solve;
  using typename Base::Operator;
  using typename Base::Preconditioner;
  using typename Base::R;
  using typename Base::Vector;

  ~SolverSYMMLQ_T() override;

  void create(const json& params);
  /// Does nothing; in particular it does not set up the preconditioner.
  void setup(const Operator& A) override;
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
};

MIVO_EXTERN_SCALARS(SolverSYMMLQ_T, long, int)

}  // namespace mivo
