// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Preconditioned conjugate gradients (Hestenes and Stiefel 1952; Saad, Iterative Methods for
/// Sparse Linear Systems, 2003, algorithm 9.1), registered as "SolverPCG".
///
/// For A symmetric (Hermitian) positive definite and a preconditioner that is the same at every
/// step and symmetric positive definite too; not for anything else: a breakdown is reported by a
/// warning and ends the solve with what there is. A may be matrix-free.
///
/// Keys beside those of the frame: "btol" (number, 0), tolerance relative to |b|; "atol" (number,
/// 0), absolute tolerance; "verb" (int, 0), above 0 for a table of its own on standard output. The
/// iteration ends when |r| is not above max(atol, btol |b|, rtol |r0|). With b = 0 it sets x to 0
/// and leaves `iter` and `relres` alone.
///
/// Cost of an iteration: a product, an application of the preconditioner, three reductions; beside
/// those 13 vectors are read or written. Five work vectors live during a solve. S is the type of
/// the inner products.
template <class T, class G, class L, class S = T>
class MIVO_API SolverPCG_T : public ParSolverT<T, G, L> {
 public:
  using Base = ParSolverT<T, G, L>;
  using Base::create;
  using Base::solve;
  using typename Base::Operator;
  using typename Base::Preconditioner;
  using typename Base::R;
  using typename Base::Vector;

  R btol = R(0);
  R atol = R(0);
  std::int32_t verb = 0;

  ~SolverPCG_T() override;

  void create(const json& params);
  /// Does nothing; in particular it does not set up the preconditioner.
  void setup(const Operator& A) override;
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
};

MIVO_EXTERN_SCALARS(SolverPCG_T, long, int)

}  // namespace mivo
