// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// AdamW optimiser (Loshchilov and Hutter, Decoupled Weight Decay Regularization, 2019) on a linear
/// system, registered as "SolverAdamW": a stationary method with momentum, for experiments.
///
/// The gradient is A x - b, that of x'Ax / 2 - b'x for a symmetric positive definite A; for such
/// systems a Krylov method is many times faster. Each element of x moves by about "learning_rate" a
/// step, and the weight decay pulls x towards 0, so the residual settles at a level of its own
/// unless both are small. The preconditioner is not applied.
///
/// Keys beside those of the frame: "learning_rate" (0.001), "beta1" (0.9), "beta2" (0.99),
/// "epsilon" (1e-8), "weight_decay" (0.01), numbers; "amsgrad" (bool, false) divides by the running
/// maximum of the second moment; "maximize" (bool, false) turns the direction round. It ends when
/// "rtol" is above |r|/|b|; `iter` is the step of that, "max_its" + 1 without it. The logged ratios
/// are those of the step before.
///
/// Cost of a step: a product, one reduction, 12 vectors read or written; four work vectors.
template <class T, class G, class L>
class MIVO_API SolverAdamW_T : public ParSolverT<T, G, L> {
 public:
  using Base = ParSolverT<T, G, L>;
  using Base::create;
  using Base::solve;
  using typename Base::Operator;
  using typename Base::Preconditioner;
  using typename Base::R;
  using typename Base::Vector;

  double learning_rate = 0.001;
  double beta1 = 0.9;
  double beta2 = 0.99;
  double epsilon = 1e-8;
  double weight_decay = 0.01;
  bool amsgrad = false;
  bool maximize = false;

  ~SolverAdamW_T() override;

  void create(const json& params);
  /// Does nothing.
  void setup(const Operator& A) override;
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
};

MIVO_EXTERN_SCALARS(SolverAdamW_T, long, int)

}  // namespace mivo
