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
  DirectBlocks<T, L> m;
  m.rank = rank;
  m.rows = rows;
  m.nblocks = a.getSize();
  m.a = a.getData();
  m.nstrong = s.getSize();
  m.s = s.getData();
  m.nviews = markViews.getSize();
  m.cf_ghosts = markViews.getData();
  m.cidx_ghosts = numberViews.getData();
  m.cf = cf.getLocalMatrix(-1).getData();
  m.cmark = cmark;
  m.do_trunc = do_trunc;
  m.eps_trunc = static_cast<R>(eps_trunc);
  m.cidx = cidx.getLocalMatrix(-1).getData();
  m.ncoarse = number.device.getData();
  m.bounds = bounds.getData();
  Local local;
  local.resize(rows, 0, device);
  m.p = local.getRawMat();
  Kernels::par_rs_interpolation(device, true, m);
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
  m.p = local.getRawMat();
  if (local.getNnz() > 0) Kernels::par_rs_interpolation(device, false, m);
  createProlongation(A, local, ncoarse, P);
}

MIVO_INSTANCE_SCALARS(LevelTransferOps_RS, long, int)

}  // namespace mivo
