// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "mivo/solver/KSPDataType.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// One run of `SolverMINRES_T`: set `ksp` up, then call the members in their order.
template <class T, class G, class L>
class MIVO_API MINRES_Impl {
 public:
  using R = RealType<T>;
  using Vector = ParMatrixT<T, G, L>;
  struct Data {
    double haptol = 1e-50;                ///< (r, z) below this counts as zero
    double norm_limit = 67108864.0;       ///< bound of |x|
    double condition_limit = 67108864.0;  ///< bound of the condition estimate
    int qlp = 1;
    int monitor = 0;                        ///< QLP form: print its table
    bool check_negative_curvature = false;  ///< standard form: end at a sign of it
    int planned_its = 0;                    ///< length of the arrays below
    std::vector<R> alpha, beta;             ///< for estimates of eigenvalues
  };

  KSPDataType<T, G, L> ksp;

  /// `radius` above 0 replaces the bound of |x|.
  void KSPSetUp_MINRES(double radius, int qlp, int monitor);
  /// The QLP form. Improves `ksp.x`. Collective.
  void KSPSolve_MINRES();
  /// The classic form. Improves `ksp.x`. Collective.
  void KSPSolve_MINRES_OLD();
  void KSPDestroy_MINRES();

  Data& data() { return *data_; }

 private:
  /// Start of both forms: r = b - A x, z = M r; false with a line and a reason when (r, z) is
  /// negative, else `dp` is (r, z).
  bool start(Vector& r, Vector& z, R& dp);
  /// The line and the reason for a negative (r, z).
  void refuseIndefinite(R dp);
  /// alpha and beta of iteration i, when they are asked for.
  void keepForEigenvalues(int i, R alpha, R beta);

  std::unique_ptr<Data> data_;
};

MIVO_EXTERN_SCALARS(MINRES_Impl, long, int)

}  // namespace mivo
