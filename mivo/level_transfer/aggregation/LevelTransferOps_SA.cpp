// SPDX-License-Identifier: Apache-2.0

// Strength of connection and prolongation; the aggregation is in LevelTransferOps_SA_aggregate.cpp.

#include "mivo/level_transfer/aggregation/LevelTransferOps_SA.hpp"

#include <iostream>
#include <limits>
#include <vector>

#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "mivo/mat/products/two_pass.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/ops/SpLevelTransferOps.hpp"
#include "mivo/ops/host/forms.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {
namespace {

/// The columns of a local matrix for `naggr` aggregates.
template <class L, class G>
L narrowAggregateCount(G naggr) {
  MIVO_CHECK(naggr <= static_cast<G>(std::numeric_limits<L>::max()))
      << "smoothed aggregation: " << naggr << " aggregates exceed the index type";
  return static_cast<L>(naggr);
}

/// Builds P with `cols` columns by a kernel that needs a marker for each.
template <class T, class L, class Kernel>
void smoothLocally(const CSRMatrixT<T, L>& A, L cols, CSRMatrixT<T, L>& P, const Kernel& kernel) {
  IndexVector marker;
  marker.create(cols, 1, A.getDevice());
  buildTwoPass(P, A.getRows(), cols, A.getDevice(),
               [&](auto view) { kernel(view, marker.getData()); });
}

}  // namespace

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::seq_strength(const Local& A, const LocalVector& D,
                                                LocalStrength& S, double eps) {
  A.copyStructure(S);
  if (A.getNnz() == 0) return;
  SpLevelTransferOps<T, G, L>::csr_strength(A.getDevice(), A.getRawMat(), D.getData(), D.getSize(),
                                            static_cast<R>(eps * eps), 0, 0, S.getRawMat());
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::par_strength(const Matrix& A, const Vector& diag, Strength& S,
                                                double eps) {
  const auto& rowPart = A.getRowPartitioner();
  const auto& colPart = A.getColPartitioner();
  const auto d = diag.getLocalMatrix(-1);
  G firstRow = 0;
  A.getOwnerShipRange(&firstRow, nullptr);
  std::vector<Local> blocks;
  A.getLocalMatrix(blocks);
  std::vector<LocalStrength> strong(blocks.size());
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    G firstCol = 0;
    colPart.getOwnerShipRangeForPart(static_cast<L>(p), &firstCol, nullptr);
    blocks[p].copyStructure(strong[p]);
    if (blocks[p].getNnz() == 0) continue;
    SpLevelTransferOps<T, G, L>::csr_strength(A.getDevice(), blocks[p].getRawMat(), d.getData(),
                                              d.getSize(), static_cast<R>(eps * eps), firstRow,
                                              firstCol, strong[p].getRawMat());
  }
  S.create(rowPart, colPart, strong, A.getDevice(), A.getComm());
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::seq_tentative_prolongation(L rows, G naggr,
                                                              const LocalAggregates& aggr,
                                                              Local& T_) {
  const Device device = aggr.getDevice();
  const L cols = narrowAggregateCount<L>(naggr);
  buildTwoPass(T_, rows, cols, device, [&](auto t) {
    SpLevelTransferOps<T, G, L>::csr_tentative_prolongation(device, rows, cols, aggr.getData(),
                                                            t.row_begin, t.col_idx, t.values);
  });
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::par_tentative_prolongation(G rows, G naggr,
                                                              const Aggregates& aggr, Matrix& T_) {
  const auto& rowPart = aggr.getRowPartitioner();
  MIVO_CHECK(rows == rowPart.getGlobalSize())
      << "par_tentative_prolongation: " << rows << " rows for " << rowPart.getGlobalSize()
      << " nodes";
  const auto nodes = aggr.getLocalMatrix(-1);
  Local whole;
  seq_tentative_prolongation(nodes.getRows(), naggr, nodes, whole);
  PartitionerT<G, L> colPart;
  colPart.create(naggr, rowPart.getNumParts());
  T_.create(rowPart, colPart, cutColumns(whole, colPart), aggr.getDevice(), aggr.getComm());
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::seq_tentative_filter(const Local& A, const LocalStrength& S,
                                                        Local& Af) {
  Matrix a, af;
  Strength s;
  a.createSeq(A, MPI_COMM_SELF);
  s.createSeq(S, MPI_COMM_SELF);
  par_tentative_filter(a, s, af);
  Af = af.getLocalMatrix(0);
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::par_tentative_filter(const Matrix& A, const Strength& S,
                                                        Matrix& Af) {
  A.copyStructure(Af);
  const auto a = A.getRawMatOnDev();
  const auto s = S.getRawMatOnDev();
  const auto af = Af.getRawMatOnDev();
  MIVO_CHECK(a.getSize() == s.getSize()) << "par_tentative_filter: A and S differ in their blocks";
  SpLevelTransferOps<T, G, L>::csr_tentative_filter(A.getDevice(), A.getLocalRows(), a.getSize(),
                                                    a.getData(), s.getData(), af.getData());
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::seq_tentative_smooth(const Local& A, G naggr, const Local& T_,
                                                        const LocalStrength& S, Local& P,
                                                        double omega) {
  smoothLocally(A, narrowAggregateCount<L>(naggr), P, [&](auto p, L* marker) {
    SpLevelTransferOps<T, G, L>::csr_tentative_smooth(A.getDevice(), A.getRawMat(), S.getRawMat(),
                                                      T_.getRawMat(), static_cast<R>(omega), p,
                                                      marker);
  });
  std::cout << "the P nnzs is " << P.getNnz() << std::endl;
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::par_tentative_smooth(const Matrix& A, G naggr, const Matrix& T_,
                                                        const Strength& S, Matrix& P,
                                                        double omega) {
  if (A.getRows() == 0 || A.getCols() == 0) {
    P.create(A.getRowPartitioner(), T_.getColPartitioner(), {}, A.getDevice(), A.getComm());
    return;
  }
  const int nprocs = sizeOf(A.getComm());
  if (!sparse::kPlainForms && nprocs == 1 && S.getNnzs() > 0 && T_.getNnzs() > 0) {
    // The same without the intermediate matrices, which nobody sees; to the bit, as
    // SmoothAggregation.ProlongationIsADampedJacobiStepOnTheFilteredMatrix sees.
    const Local a = A.getLocalMatrix(0), t = T_.getLocalMatrix(0);
    const LocalStrength s = S.getLocalMatrix(0);
    Local p;
    smoothLocally(a, narrowAggregateCount<L>(naggr), p, [&](auto view, L* marker) {
      SpLevelTransferOps<T, G, L>::csr_tentative_filter_smooth(a.getDevice(), a.getRawMat(),
                                                               s.getRawMat(), t.getRawMat(),
                                                               static_cast<R>(omega), view, marker);
    });
    P.create(A.getRowPartitioner(), T_.getColPartitioner(), {p}, A.getDevice(), A.getComm());
    return;
  }
  Matrix smoother;
  if (S.getNnzs() > 0) {
    par_tentative_filter(A, S, smoother);
  } else {
    smoother = A.deepCopy();
  }
  Vector ones;
  ones.create(A.getRowPartitioner(), A.getDevice(), A.getComm());
  ones.fill(T(1));
  // I - omega Df^-1 Af
  Vector inverse = smoother.getDiag();
  Vector::reciprocal(T(1), inverse);
  smoother.matmul_aDA(T(static_cast<R>(-omega)), inverse, smoother);
  Matrix::axpbyDiag(T(1), ones, T(1), Vector(), smoother, smoother);
  smoother.multiply(T_, P);
}

MIVO_INSTANCE_SCALARS(LevelTransferOps_SA, long, int)

}  // namespace mivo
