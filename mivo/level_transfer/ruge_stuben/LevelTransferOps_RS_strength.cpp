// SPDX-License-Identifier: Apache-2.0

// Classical strength of connection.

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/ops/SpLevelTransferOps.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::par_BoomerAMGStrength(const Matrix& A, const Vector& diag,
                                                         double strong_threshold,
                                                         double max_row_sum, int num_functions,
                                                         Strength& S) {
  const Device device = A.getDevice();
  const int rank = rankOf(A.getComm());
  A.copyStructure(S);

  Marks dof;
  typename Strength::Plan plan;
  MatrixT<COT_RawCommPattern<int, L>, L, MatrixLayoutRowMajor> views;
  if (num_functions > 1) {
    G begin = 0;
    A.getOwnerShipRange(&begin, nullptr);
    MatrixT<int, L, MatrixLayoutRowMajor> functions;
    functions.create(A.getLocalRows(), 1, Device());
    for (L i = 0; i < functions.getRows(); ++i) {
      functions.getData()[i] = static_cast<int>((begin + i) % num_functions);
    }
    dof.create(A.getRowPartitioner(), device, A.getComm());
    dof.setLocalMatrix({functions.toDevice(device)});
    A.prepareMatVec(false);
    A.getSpMVCommPattern().copyStructure(plan, true);
    plan.exchange(dof, nullptr, nullptr, nullptr, nullptr);
    views = plan.getRawMatOnDev();
  }
  const auto a = A.getRawMatOnDev();
  const auto s = S.getRawMatOnDev();
  StrengthRows<T, L> rows;
  rows.rank = rank;
  rows.rows = A.getLocalRows();
  rows.nblocks = a.getSize();
  rows.a = a.getData();
  rows.s = s.getData();
  rows.diagonal = diag.getLocalMatrix(-1).getData();
  if (num_functions > 1) rows.dof = dof.getLocalMatrix(-1).getData();
  rows.nviews = views.getSize();
  rows.dof_ghosts = views.getData();
  SpLevelTransferOps<T, G, L>::par_boomeramg_strength(
      device, rows, static_cast<R>(strong_threshold), static_cast<R>(max_row_sum));
}

MIVO_INSTANCE_SCALARS(LevelTransferOps_RS, long, int)

}  // namespace mivo
