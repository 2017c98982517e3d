// SPDX-License-Identifier: Apache-2.0

// Extended+i interpolation and truncation.

#include <algorithm>
#include <cstdint>
#include <limits>

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/level_transfer/ruge_stuben/coarse_columns.hpp"
#include "mivo/level_transfer/ruge_stuben/extended_rows.hpp"
#include "mivo/ops/SpLevelTransferOps.hpp"
#include "mivo/utils/TickMeter.hpp"
#include "mivo/utils/Utils.hpp"

namespace mivo {
namespace {

/// Whether any rank has elements: one without rows has none in any case. Collective.
template <class Vector>
bool isGivenSomewhere(int comm, const Vector& own) {
  int given = own.getSize() > 0 ? 1 : 0;
  MPI_Allreduce(MPI_IN_PLACE, &given, 1, MPI_INT, MPI_MAX, comm);
  return given != 0;
}

/// Cuts the rows of `work`, whose entries are rearranged.
template <class T, class G, class L>
CSRMatrixT<T, L> truncated(const CSRMatrixT<T, L>& work, double trunc_factor, int max_elmts,
                           bool rescale, int nrm_type) {
  CSRMatrixT<T, L> kept;
  IndexVector begin, end;
  begin.create(work.getRows(), 1, work.getDevice());
  end.create(work.getRows(), 1, work.getDevice());
  SpLevelTransferOps<T, G, L>::boomeramg_csr_truncate(
      work.getDevice(), work.getRawMat(), static_cast<RealType<T>>(trunc_factor), max_elmts,
      rescale, nrm_type, begin.getData(), end.getData());
  work.getSelectedCols(begin, end, kept, work.getCols());
  return kept;
}

}  // namespace

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::par_BoomerAMGCSRMatrixTruncate(const Local& P,
                                                                  double trunc_factor,
                                                                  int max_elmts, bool rescale,
                                                                  int nrm_type, Local& Pout) {
  if (P.getNnz() == 0) {
    Pout = Local();
    return;
  }
  Local work;
  P.deepCopy(work);
  Pout = truncated<T, G, L>(work, trunc_factor, max_elmts, rescale, nrm_type);
}

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::par_BoomerAMGInterpolationExtendedPI(
    const Matrix& A, const Strength& S, const Marks& cf, int num_functions, const LocalMarks& dof,
    double trunc_factor, int p_max_elmts, G& ncoarse, bool /*debug*/, Matrix& P) {
  using Kernels = SpLevelTransferOps<T, G, L>;
  const Device device = A.getDevice();
  TickMeter whole, patterns, ghosts, counting, filling, truncating;
  whole.start();

  patterns.start();
  const ExtendedRows<T, G, L> extended(A, S);
  patterns.stop();

  ghosts.start();
  const auto marks = extended.exchange(cf);
  const auto diagonal = extended.exchange(A.getDiag());
  LocalMarks functions;
  if (num_functions > 1 && isGivenSomewhere(A.getComm(), dof)) {
    MIVO_CHECK(dof.getSize() == A.getLocalRows())
        << "interpolation: " << dof.getSize() << " functions for " << A.getLocalRows()
        << " rows of a rank";
    Marks own;
    own.create(A.getRowPartitioner(), device, A.getComm());
    own.setLocalMatrix({dof});
    functions = extended.exchange(own);
  }
  ghosts.stop();

  counting.start();
  const L size = extended.a.getCols();
  LocalMarks coarse;
  IndexVector marker, strongPtr, strongC;
  Local shares, row;  // as wide as may be; their memory is touched as far as it is used
  coarse.create(size, 1, device);
  marker.create(size, 1, device);
  strongPtr.create(size + 1, 1, device);
  strongC.create(extended.s.getNnz() + 1, 1, device);
  const std::int64_t sharesRoom = std::int64_t(extended.a.getNnz()) + size + 1;
  MIVO_CHECK(sharesRoom <= std::numeric_limits<L>::max())
      << "interpolation: " << sharesRoom << " shares of entries exceed the index type";
  shares.create(size, size, static_cast<L>(sharesRoom), device);
  row.create(0, size, size, device);
  ExtendedInterpolation<T, L> m;
  m.a = extended.a.getRawMat();
  m.s = extended.s.getRawMat();
  m.first = extended.first;
  m.rows = extended.rows;
  m.cf = marks.getData();
  m.diagonal = diagonal.getData();
  if (functions.getSize() > 0) m.dof = functions.getData();
  m.coarse = coarse.getData();
  m.c_ptr = strongPtr.getData();
  m.c_col = strongC.getData();
  m.d = shares.getRawMat();
  m.marker = marker.getData();
  m.row = row.getRawMat();
  // A host cuts each row as it is made. A device, where one task makes them all, cuts them
  // afterwards, in parallel.
  const bool atOnce = device.type == Device::kHost;
  const bool cuts = trunc_factor > 0 || p_max_elmts >= 1;
  if (atOnce) {
    m.trunc_factor = static_cast<RealType<T>>(trunc_factor);
    m.max_elmts = p_max_elmts;
  }
  const auto ownMarks = cf.getLocalMatrix(-1).toDevice(Device());
  const CoarseCount count(
      A.getComm(),
      static_cast<int>(std::count_if(ownMarks.getData(), ownMarks.getData() + ownMarks.getSize(),
                                     [](int mark) { return mark >= 0; })));
  ncoarse = static_cast<G>(count.all);
  // Entries are counted only where `p_max_elmts` gives no good bound for them.
  std::int64_t room =
      count.own + static_cast<std::int64_t>(p_max_elmts) * (extended.rows - count.own);
  const std::int64_t most = 2 * (static_cast<std::int64_t>(extended.a.getNnz()) + extended.rows);
  const bool isBound = atOnce && p_max_elmts >= 1 &&
                       room <= std::min<std::int64_t>(most, std::numeric_limits<L>::max());
  Local local;
  if (!isBound) {
    local.resize(extended.rows, 0, device);
    m.p = local.getRawMat();
  }
  if (extended.rows > 0) Kernels::par_boomeramg_interpolation_extended_pi(device, true, m);
  if (!isBound) room = local.evaluateNnzs();
  if (extended.isDistributed()) {
    Marks numbers;
    numbers.create(A.getRowPartitioner(), device, A.getComm());
    const auto own = numbers.getLocalMatrix(-1);
    if (extended.rows > 0) {
      device.rawCopyTo(static_cast<std::size_t>(extended.rows) * sizeof(int),
                       coarse.getData() + extended.first, device, own.getData());
    }
    Kernels::par_boomeramg_interpolation_add_rank_bias(device, extended.rows, count.before,
                                                       own.getData());
    coarse = extended.exchange(numbers);
    m.coarse = coarse.getData();
  }
  counting.stop();

  filling.start();
  local.create(extended.rows, static_cast<L>(ncoarse), static_cast<L>(room), device);
  m.p = local.getRawMat();
  if (extended.rows > 0) Kernels::par_boomeramg_interpolation_extended_pi(device, false, m);
  local.shrinkNnz(local.evaluateNnzs());
  filling.stop();

  truncating.start();
  if (!atOnce && cuts && local.getNnz() > 0) {
    local = truncated<T, G, L>(local, trunc_factor, p_max_elmts, true, 0);
  }
  truncating.stop();
  createProlongation(A, local, ncoarse, P);
  whole.stop();
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
      << "par_BoomerAMGInterpolationExtendedPI time " << whole.getTimeSec()
      << " ghost_and_comm_pat_time " << patterns.getTimeSec() << " ghost_time "
      << ghosts.getTimeSec() << " get_non_zero_time " << counting.getTimeSec() << " fill_elem_time "
      << filling.getTimeSec() << " truncate_time " << truncating.getTimeSec();
}

MIVO_INSTANCE_SCALARS(LevelTransferOps_RS, long, int)

}  // namespace mivo
