// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Minimum residuals, registered as "SolverMINRES".
///
/// For A symmetric, definite or not, with a symmetric positive definite preconditioner. Its scalars
/// are real parts of inner products: a complex A should be Hermitian. The residual never rises, but
/// for rounding or a part of 1e-8 of it in the last step of "qlp" on a singular system.
///
/// Keys beside those of the frame: "algo" (string, "qlp"); "radius" (number, 0), above 0 a bound of
/// |x| for "qlp" in place of 67108864; "monitor" (int, 0), not 0 for the table of "qlp" on standard
/// output; "norm_type" (int, 0), without effect. Another "algo" ends the process.
///
/// - "qlp" (Choi, Paige and Saunders, MINRES-QLP, SIAM J. Sci. Comput. 33, 2011): for singular
///   systems, too, of which it finds the solution of least length, or the least-squares solution of
///   least length where rounding does not hide the rank, as it does in single precision: set
///   "radius" there. |r| is measured in the norm of the preconditioner, scaled to begin with
///   |b - A x|. From a start x, lengths are those of the change of x. It ends when rtol > |r| /
///   |r0|, at the level of rounding, at a least-squares solution, before a step beyond the bound of
///   |x|, when the estimated condition passes 67108864, at "max_its", or with a line and the x of
///   the step before when the preconditioner turns out indefinite. x is good only at the end.
/// - "standard" (Paige and Saunders, SIAM J. Numer. Anal. 12, 1975): |r| begins as |M r0|, the norm
///   of the preconditioned residual, and is compared with |r0| = |b - A x|, so that a
///   preconditioner that scales changes what rtol means. The start has to differ from the solution:
///   an exact one runs into 0/0 and leaves x full of NaN. It does one iteration when "max_its" is
///   0. Lines are printed when the Lanczos process ends or the preconditioner is not definite.
///
/// `relres` is the last |r| / |r0|, 0/0 when x was exact.
///
/// Cost of an iteration: a product, an application of the preconditioner, two reductions; beside
/// those 15 ("qlp") or 20 vectors are read or written. Nine work vectors live during a solve.
template <class T, class G, class L>
class MIVO_API SolverMINRES_T : public ParSolverT<T, G, L> {
 public:
  using Base = ParSolverT<T, G, L>;
  using Base::create;
  using Base::solve;
  using typename Base::Operator;
  using typename Base::Preconditioner;
  using typename Base::R;
  using typename Base::Vector;

  std::string algo = "qlp";
  std::int32_t norm_type = 0;
  std::int32_t monitor = 0;
  std::int32_t qlp = 1;  ///< handed to the run, which does not read it
  double radius = 0.0;

  ~SolverMINRES_T() override;

  void create(const json& params);
  /// Does nothing; in particular it does not set up the preconditioner.
  void setup(const Operator& A) override;
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
};

MIVO_EXTERN_SCALARS(SolverMINRES_T, long, int)

}  // namespace mivo
