// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "mivo/solver/KSPDataType.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// One run of `SolverLGMRES_T`: set `ksp` up, then call the members in their order.
///
/// The cycle reaches the system through three hooks. As they stand each of them ends the process;
/// whoever fills them gets loose GMRES (Baker, Jessup and Manteuffel, SIAM J. Matrix Anal. Appl.
/// 26, 2005), which keeps the corrections of the last cycles and uses them at the end of the next.
template <class T, class G, class L>
class MIVO_API LGMRES_Impl {
 public:
  using R = RealType<T>;
  using Vector = ParMatrixT<T, G, L>;

  struct Data {
    int max_k = 30;           ///< steps in a cycle
    int aug_dim = 2;          ///< corrections that are kept
    double haptol = 1e-30;    ///< bound of a new vector's norm, below which the space is complete
    int preallocated = 0;     ///< basis vectors beyond the first chunk
    int delta_allocate = 10;  ///< vectors added at a time
    int approx_constant = 0;  ///< 0: corrections count among the max_k steps of a cycle
    int aug_ct = 0;           ///< corrections kept so far
    int matvecs = 0;          ///< applications of the operator
    int it = -1;              ///< last step of the running cycle
    std::vector<T> hh;        ///< Hessenberg matrix under rotations, columns of max_k + 2
    std::vector<T> hes;       ///< Hessenberg matrix itself, columns of max_k + 1
    std::vector<T> grs;       ///< right-hand side of the least-squares problem
    std::vector<T> cc, ss;    ///< rotations
    std::vector<T> nrs;       ///< solution of the least-squares problem
    std::vector<T> Rsvd;      ///< workspaces for singular values
    std::vector<R> Dsvd;
    std::vector<Vector> basis;
    std::vector<Vector> augvecs;  ///< corrections, their images, and one to work with
    std::vector<int> aug_order;   ///< age of each correction, 1 for the newest; 0: none
  };

  KSPDataType<T, G, L> ksp;
  /// r = residual of the (preconditioned) system
  std::function<void(Vector& r)> initialResidual;
  /// out = operator and preconditioner applied to v
  std::function<void(const Vector& v, Vector& out)> applyOperator;
  /// turns a combination of basis vectors into a change of x
  std::function<void(Vector& t)> unwindPreconditioner;

  LGMRES_Impl();
  void KSPSetUp_LGMRES();
  /// Improves `ksp.x`. Collective.
  void KSPSolve_LGMRES();
  void KSPDestroy_LGMRES();
  /// `out` = x with the correction of the running cycle's steps so far. Collective.
  void KSPBuildSolution_LGMRES(Vector& out);

  Data& data() { return *data_; }

 private:
  T& HH(int i, int j) { return at(data_->hh, j * (data_->max_k + 2) + i); }
  T& HES(int i, int j) { return at(data_->hes, j * (data_->max_k + 1) + i); }
  template <class V>
  static auto& at(V& values, int i) {
    return values[static_cast<std::size_t>(i)];
  }
  Vector& basis(int j);
  Vector& augmentation(int slot) { return at(data_->augvecs, slot); }
  Vector& image(int slot) { return at(data_->augvecs, data_->aug_dim + slot); }
  Vector& correction() { return at(data_->augvecs, 2 * data_->aug_dim); }

  /// Appends `count` vectors of the shape of b.
  void KSPCreateVecs(int count, std::vector<Vector>& out);
  /// One cycle from the residual in the first basis vector.
  void runCycle();
  /// Makes the next basis vector orthogonal to those before; false when the space is complete.
  bool orthogonalise(int it);
  /// Rotations on column `it`; false when the new one cannot be formed.
  bool updateHessenberg(int it, bool complete, R& res);
  /// to = from + correction of the steps 0..it, which stays in `correction()`.
  void KSPLGMRESBuildSoln(const Vector& from, Vector& to, int it);
  /// Keeps the correction and its image in place of the oldest.
  void keepCorrection(int it);
  /// Slot of the correction of this age.
  int slotOfAge(int age) const;

  std::unique_ptr<Data> data_;
};

MIVO_EXTERN_SCALARS(LGMRES_Impl, long, int)

}  // namespace mivo
