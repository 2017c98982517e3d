// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/precond/ParSmootherJacobi.hpp"

namespace mivo {

/// Jacobi iteration whose factor is a_ii / sum_j |a_ij|^p instead of 1 / a_ii: a step so much
/// shorter where off-diagonal entries are large that it also converges where plain Jacobi does not.
/// A zero sum counts as 1. (Compare Baker, Falgout, Kolev, Yang, Multigrid smoothers for
/// ultraparallel computing, 2011, on l1-Jacobi.)
///
/// Registered as "SmootherJacobiLp", "PrecondJacobiLp" and "SolverJacobiLp" (the last, for float,
/// in the smoother family instead of the solver family). Keys: those of Jacobi and "order"
/// (number, 2.0), which is p.
template <class T, class G, class L>
class MIVO_API ParSmootherJacobiLp_T : public ParSmootherJacobi_T<T, G, L> {
 public:
  using Base = ParSmootherJacobi_T<T, G, L>;
  using Base::create;
  using typename Base::Operator;
  using typename Base::Vector;

  double order = 2.0;

  ~ParSmootherJacobiLp_T() override;

  void create(const json& params);
  void setup(const Operator& A) override;
};

MIVO_EXTERN_SCALARS(ParSmootherJacobiLp_T, long, int)

}  // namespace mivo
