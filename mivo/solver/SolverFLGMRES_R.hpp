// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Flexible restarted GMRES with the preconditioner on the right (Saad 1993), whose cycles are
/// extended by the corrections of earlier cycles as in loose GMRES (Baker, Jessup and Manteuffel
/// 2005). Registered as "SolverFLGMRES_R".
///
/// For general square A, and for preconditioners that differ from step to step. The residual norm
/// never rises within a cycle, for real data and for complex data without imaginary parts. For
/// other complex data the products of the Gram-Schmidt process, (w, V_j), are the conjugates of
/// those that make the basis orthogonal, and it need not converge. A may be matrix-free.
///
/// A cycle takes "restart" columns, and one more for each correction kept, up to "augk" of them. A
/// column that vanishes (exactly) is left out: the cycle ends with a message and the next one
/// starts. So an operator that maps r to a multiple of itself, such as the identity, uses all
/// iterations up without an answer. The residual reported is that of the recurrence.
///
/// Keys beside those of the frame: "restart" (int, 20), columns of the first cycle, not above 0 for
/// no restarts; "augk" (int, 2), corrections kept, not above 0 for 2; "btol" (number, 0), tolerance
/// relative to |b|; "atol" (number, 0), absolute tolerance; "verb" (int, 0), above 0 for a table of
/// its own on standard output. The iteration ends when |r| is not above max(atol, btol |b|, rtol
/// |r0|). With b = 0 it sets x to 0 and leaves `iter` and `relres` alone.
///
/// `solve` leaves the length of its last cycle in `restart`, so that the next solve of this object
/// starts with it.
///
/// Cost of step i of a cycle, from 0: a product, an application of the preconditioner, i + 2
/// reductions; beside those 4 i + 9 vectors are read or written. Memory: 2 (restart + augk) + augk
/// + 4 vectors, of which those beyond 1000 columns and 16 kept corrections come as they are
/// reached; without restarts two more for each column reached. Collective. S is the type of the
/// inner products.
template <class T, class G, class L, class S = T>
class MIVO_API SolverFLGMRES_R_T : public ParSolverT<T, G, L> {
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
  std::int32_t restart = 20;  ///< grows in `solve`
  std::int32_t augk = 2;
  std::int32_t verb = 0;

  ~SolverFLGMRES_R_T() override;

  void create(const json& params);
  /// Does nothing; in particular it does not set up the preconditioner.
  void setup(const Operator& A) override;
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
};

MIVO_EXTERN_SCALARS(SolverFLGMRES_R_T, long, int)

}  // namespace mivo
