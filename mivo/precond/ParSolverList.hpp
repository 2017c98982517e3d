// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Solvers one after the other until |b - A x| / |b| falls below `rtol`, registered as
/// "SolverList".
///
/// Its parameters are an array of solvers, which may be lists; each starts from the x that the one
/// before it left. All of them run with the preconditioner of the list, which an array cannot name
/// and which therefore is the identity unless a program sets it: the preconditioners of the members
/// are neither set up nor applied. Nor can an array set the keys of the frame, so that `rtol` is
/// 1e-8. A status is logged after each member, under its index from 0; `iter` is 0 after every
/// solve. An empty list leaves x as it is. Members of unknown name are passed over.
///
/// Cost beside the members: one product and one reduction for each, and one more. Collective.
template <class T, class G, class L>
class MIVO_API ParSolverList_T : public ParSolverT<T, G, L> {
 public:
  using Base = ParSolverT<T, G, L>;
  using Base::create;
  using Base::solve;
  using typename Base::Operator;
  using typename Base::Preconditioner;
  using typename Base::R;
  using typename Base::Vector;

  ~ParSolverList_T() override;

  void create(const json& params);
  /// Sets up the members, not their preconditioners.
  void setup(const Operator& A) override;
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;

 private:
  std::vector<std::shared_ptr<Base>> members_;
};

MIVO_EXTERN_SCALARS(ParSolverList_T, long, int)

}  // namespace mivo
