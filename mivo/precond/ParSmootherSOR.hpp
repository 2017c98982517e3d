// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParOpBase.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Successive over-relaxation (Young 1971; Saad 2003, section 4.1): a rank sweeps its rows in order
/// and reads values that it has just updated, while columns of other ranks keep the values that one
/// halo exchange brought before the sweep.
///
/// One class in three roles: "SmootherSOR" takes `nsweeps` sweeps from the given x; "PrecondSOR"
/// the same from zero; "SolverSOR" single sweeps until |b - A x| / |b| falls below `rtol`. Needs a
/// `ParCSRMatrixT`, which it shares. A zero on the diagonal gives infinities, unreported. A single
/// SOR sweep is not a symmetric operator: for conjugate gradients take SSOR.
///
/// Keys: those of the solver frame, "relax" (number, 1.0, the factor omega), "forward" (bool,
/// true), "nsweeps" (int, 1), "initial_zero" (bool, true).
///
/// A sweep reads the matrix once and is strictly sequential on each rank. It makes one exchange, of
/// which the first sweep from zero, of a preconditioner or of `smoothFromZero`, needs none.
/// Collective except for `create`.
template <class T, class G, class L>
class MIVO_API ParSmootherSOR_T : public ParOpBaseT<T, G, L> {
 public:
  using R = RealType<T>;
  using Operator = ParMatrixFreeT<T, G, L>;
  using Preconditioner = ParPreconditionerT<T, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using ParSolverT<T, G, L>::solve;
  using ParSolverT<T, G, L>::create;

  T relax = T(1);
  bool forward = true;
  std::int32_t nsweeps = 1;
  bool initial_zero = true;

  ~ParSmootherSOR_T() override;

  void create(const json& params);
  void setup(const Operator& A) override;
  void smooth(const Vector& b, Vector& x) override;
  void smoothFromZero(const Vector& b, Vector& x) override;
  /// One sweep with factor `omega`, in rising order of rows or in falling order. Step k treats row
  /// rowOrder[k] where `rowOrder`, in memory of the matrix's device, is not null.
  virtual void sor_step(const Vector& b, Vector& x, double omega, bool ascending, int* rowOrder);
  void precondition(const Vector& b, Vector& x) override;
  /// `A` serves the messages only: the matrix is that of `setup`. `iter` is max_its + 1 when the
  /// iteration did not converge.
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
  std::size_t getBytes() const override;

 protected:
  ParCSRMatrixT<T, G, L> matrix;
  Vector diagonal;
  std::int32_t matrix_rank = 0;  ///< this process's rank in the matrix's communicator

 private:
  bool has_matrix = false;
  bool x_is_zero = false;  ///< told to the next `sor_step` of this class, which then sends nothing

  void startFromZero(Vector& x);
  /// Brings the ghost values to the blocks of other ranks.
  void bringGhosts(const Vector& x);
  void sweeps(const char* what, const Vector& b, Vector& x);

  // Filled by each sweep, since pointers in the views may change.
  typename ParCSRMatrixT<T, G, L>::BlockTable host_blocks;
  typename ParCSRMatrixT<T, G, L>::BlockTable device_blocks;
  Vector scratch;  ///< residuals
};

MIVO_EXTERN_SCALARS(ParSmootherSOR_T, long, int)

}  // namespace mivo
