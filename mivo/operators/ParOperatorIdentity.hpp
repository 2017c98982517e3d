// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/operators/ParMatrixFree.hpp"
#include "mivo/operators/ParPreconditioner.hpp"
#include "mivo/operators/ParSmoother.hpp"
#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// The object that changes nothing, in four roles: operator ("Identity"), preconditioner
/// ("PrecondIdentity"), smoother ("SmootherIdentity"), and the solver that applies the
/// preconditioner once ("SolverPreOnly").
///
/// It has no keys and no shape of its own. As an operator it copies x and ignores both factors.
template <class T, class G, class L>
class MIVO_API ParOperatorIdentityT : public ParMatrixFreeT<T, G, L>,
                                      public ParPreconditionerT<T, G, L>,
                                      public ParSolverT<T, G, L>,
                                      public ParSmootherT<T, G, L> {
 public:
  using R = RealType<T>;
  using Operator = ParMatrixFreeT<T, G, L>;
  using Preconditioner = ParPreconditionerT<T, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using typename ParMatrixFreeT<T, G, L>::AsyncMatVecObject;
  using ParSolverT<T, G, L>::solve;
  using ParSolverT<T, G, L>::create;

  ~ParOperatorIdentityT() override;

  /// Reads nothing and makes no child: the default preconditioner of the solver frame is itself an
  /// identity.
  void create(const json& params);

  /// The world
  int getComm() const override;
  /// The host
  Device getDevice() const override;
  /// 0
  G getRows() const override;
  /// 0
  G getCols() const override;
  /// y = x, whatever the factors
  void aAxpby(T alpha, const Vector& x, T beta, Vector& y, AsyncMatVecObject* async) override;
  /// Does nothing.
  void setup(const Operator& A) override;
  /// z = r
  void precondition(const Vector& r, Vector& z) override;
  /// Leaves x alone.
  void smooth(const Vector& b, Vector& x) override;
  /// x = P b; `iter` and `relres` keep their values.
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
};

MIVO_EXTERN_SCALARS(ParOperatorIdentityT, long, int)

}  // namespace mivo
