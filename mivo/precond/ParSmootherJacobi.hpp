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

/// Damped Jacobi iteration x += relax D^-1 (b - A x), D being the diagonal of A (Saad 2003,
/// section 4.1).
///
/// One class in three roles: "SmootherJacobi" takes `nsweeps` sweeps from the given x;
/// "PrecondJacobi" the same from zero; "SolverJacobi" single sweeps until |b - A x| / |b| falls
/// below `rtol`. Needs a `ParCSRMatrixT`, which it shares; a diagonal entry of zero counts as 1.
/// Converges for instance for strictly diagonally dominant A.
///
/// Keys: "relax" (number, 1.0), "nsweeps" (int, 1), "initial_zero" (bool, true), "max_iters" (int,
/// 0: applications after this many sweeps copy their input, for good). The keys of the solver frame
/// are not read.
///
/// Cost of a sweep: one product, and one reduction in `solve` or with "verbose" alone. The first
/// sweep from zero, of a preconditioner or of `smoothFromZero`, sends nothing: it reads two vectors
/// and writes one, unless values of A are not finite. Collective except for `create`; one thread
/// per object.
template <class T, class G, class L>
class MIVO_API ParSmootherJacobi_T : public ParOpBaseT<T, G, L> {
 public:
  using R = RealType<T>;
  using Operator = ParMatrixFreeT<T, G, L>;
  using Preconditioner = ParPreconditionerT<T, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using ParSolverT<T, G, L>::solve;
  using ParSolverT<T, G, L>::create;

  T relax = T(1);
  std::int32_t nsweeps = 1;
  bool initial_zero = true;
  std::int32_t apply_count = 0;  ///< sweeps of `precondition` since construction
  std::int32_t max_iters = 0;

  ~ParSmootherJacobi_T() override;

  void create(const json& params);
  void setup(const Operator& A) override;
  void smooth(const Vector& b, Vector& x) override;
  void smoothFromZero(const Vector& b, Vector& x) override;
  void precondition(const Vector& b, Vector& x) override;
  /// `P` and `A` are not used: the matrix is that of `setup`. `iter` is max_its + 1 when the
  /// iteration did not converge.
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
  std::size_t getBytes() const override;

 protected:
  /// Takes the matrix and looks for values that are not finite, on all ranks; false, with a
  /// message, when A is of another kind. Collective.
  bool shareMatrix(const Operator& A);

  ParCSRMatrixT<T, G, L> matrix;
  Vector inverse;  ///< factor of the residual in a sweep

 private:
  /// x = x + relax inverse .* scratch
  void correct(Vector& x);
  /// x = x + relax inverse .* (b - A x)
  void sweep(const Vector& b, Vector& x);
  /// The first sweep from x = 0 without a product, whatever x holds; false, without effect, when it
  /// has to be done at length.
  bool sweepFromZero(const Vector& b, Vector& x);
  /// Begins with x = 0; true when that includes the first sweep.
  bool startFromZero(const Vector& b, Vector& x);
  void logResidual(const char* what, int sweepNumber, const Vector& b, const Vector& x);

  bool has_matrix = false;
  bool is_finite = false;  ///< all values of the matrix are, on all ranks
  Vector scratch;          ///< residual of the sweeps
};

MIVO_EXTERN_SCALARS(ParSmootherJacobi_T, long, int)

}  // namespace mivo
