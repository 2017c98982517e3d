// SPDX-License-Identifier: Apache-2.0

// Direct interpolation on distributed matrices.

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/level_transfer/ruge_stuben/coarse_columns.hpp"
#include "mivo/mat/CrossData.hpp"
#include "mivo/ops/SpLevelTransferOps.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::par_interpolation(const Matrix& A, const Strength& S,
                                                     const Marks& cf, bool do_trunc,
                                                     double eps_trunc, int cmark, int /*fmark*/,
                                                     G& ncoarse, Matrix& P) {
  using Kernels = SpLevelTransferOps<T, G, L>;
  const Device device = A.getDevice();
  const L rows = A.getLocalRows();
  const int rank = rankOf(A.getComm()), nprocs = sizeOf(A.getComm());

  typename Strength::Plan marks, numbers;
  MatrixT<COT_RawCommPattern<int, L>, L, MatrixLayoutRowMajor> markViews, numberViews;
  if (nprocs > 1) {
    S.prepareMatVec(false);
    S.getSpMVCommPattern().copyStructure(marks, true);
    S.getSpMVCommPattern().copyStructure(numbers, true);
    marks.exchange(cf, nullptr, nullptr, nullptr, nullptr);
    markViews = marks.getRawMatOnDev();
    numberViews = numbers.getRawMatOnDev();
  }

  const auto a = A.getRawMatOnDev();
  const auto s = S.getRawMatOnDev();
  Marks cidx;
  cidx.create(A.getRowPartitioner(), device, A.getComm());
  MatrixT<R, L, MatrixLayoutRowMajor> bounds;
  bounds.create(2 * rows, 1, device);
  CrossData<int> number(device, 0);
  const auto kernel = [&](bool counts, auto view) {
    Kernels::par_rs_interpolation(
        device, counts, rank, rows, a.getSize(), a.getData(), s.getSize(), s.getData(),
        markViews.getSize(), markViews.getData(), numberViews.getData(),
        cf.getLocalMatrix(-1).getData(), do_trunc, static_cast<R>(eps_trunc), cmark,
        cidx.getLocalMatrix(-1).getData(), number.device.getData(), bounds.getData(), view);
  };
  Local local;
  local.resize(rows, 0, device);
  kernel(true, local.getRawMat());
  number.toHost();
  const CoarseCount count(A.getComm(), *number.host.getData());
  ncoarse = static_cast<G>(count.all);
  Kernels::par_boomeramg_interpolation_add_rank_bias(device, rows, count.before,
                                                     cidx.getLocalMatrix(-1).getData());
  if (nprocs > 1) {
    numbers.fill(-200);
    numbers.exchange(cidx, nullptr, nullptr, nullptr, nullptr);
  }
  local.resizeNnz(local.evaluateNnzs(), static_cast<L>(ncoarse));
  if (local.getNnz() > 0) kernel(false, local.getRawMat());
  createProlongation(A, local, ncoarse, P);
}

MIVO_INSTANCE_SCALARS(LevelTransferOps_RS, long, int)

}  // namespace mivo
