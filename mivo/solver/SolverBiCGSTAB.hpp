// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Stabilised bi-conjugate gradients (van der Vorst 1992; Saad, Iterative Methods for Sparse Linear
/// Systems, 2003, algorithm 7.7) with the preconditioner on the right, so that the residuals are
/// those of the given system. Registered as "SolverBiCGSTAB".
///
/// For general square A, symmetric or not, with short recurrences and constant memory; the residual
/// does not fall evenly, and the method may break down. The preconditioner must be the same at
/// every step. For complex data the product of r and r0 is taken as (r, r0), the conjugate of that
/// in the books: the same for data without imaginary parts, while for others it need not converge.
/// A may be matrix-free.
///
/// Keys beside those of the frame: "btol" (number, 0), tolerance relative to |b|; "atol" (number,
/// 0), absolute tolerance; "verb" (int, 0), above 0 for a table of its own on standard output. The
/// iteration ends when |r| is not above max(atol, btol |b|, rtol |r0|), which a NaN is not. With
/// b = 0 it sets x to 0 and leaves `iter` and `relres` alone. A breakdown ends it with what there
/// is: (r, r0) = 0 by a message; a residual that vanishes at the half step by another, after the
/// half step is taken and the residual computed anew. Both count as an iteration, without a row in
/// the tables.
///
/// Cost of an iteration: two products, two applications of the preconditioner, six reductions;
/// beside those 25 vectors are read or written. Eight work vectors live during a solve. Collective.
/// S is the type of the inner products.
template <class T, class G, class L, class S = T>
class MIVO_API SolverBiCGSTAB_T : public ParSolverT<T, G, L> {
 public:
  using Base = ParSolverT<T, G, L>;
  using Base::create;
  using Base::solve;
  using typename Base::Operator;
  using typename Base::Preconditioner;
  using typename Base::R;
  using typename Base::Vector;

  double btol = 0;
  double atol = 0;
  std::int32_t verb = 0;

  ~SolverBiCGSTAB_T() override;

  void create(const json& params);
  /// Does nothing; in particular it does not set up the preconditioner.
  void setup(const Operator& A) override;
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
};

MIVO_EXTERN_SCALARS(SolverBiCGSTAB_T, long, int)

}  // namespace mivo
