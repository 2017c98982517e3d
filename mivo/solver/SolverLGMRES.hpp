// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Loose GMRES, registered as "SolverLGMRES". It solves nothing yet: `solve` prepares its storage,
/// prints the first line of the frame, and then ends the process with exit code 1 at the hook that
/// would give the first residual. Take "SolverFLGMRES_R".
///
/// It has the keys of the frame, none of which changes that.
template <class T, class G, class L>
class MIVO_API SolverLGMRES_T : public ParSolverT<T, G, L> {
 public:
  using Base = ParSolverT<T, G, L>;
  using Base::create;
  using Base::solve;
  using typename Base::Operator;
  using typename Base::Preconditioner;
  using typename Base::R;
  using typename Base::Vector;

  ~SolverLGMRES_T() override;

  void create(const json& params);
  /// Does nothing.
  void setup(const Operator& A) override;
  /// Ends the process. Collective.
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
};

MIVO_EXTERN_SCALARS(SolverLGMRES_T, long, int)

}  // namespace mivo
