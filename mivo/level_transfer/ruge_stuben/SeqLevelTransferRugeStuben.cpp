// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/ruge_stuben/SeqLevelTransferRugeStuben.hpp"

#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {
namespace {

/// A matrix with the rows of `whole`, which rank 0 has, cut like those of A, and columns spread
/// evenly. Collective.
template <class T, class G, class L>
void scatterRows(const ParCSRMatrixT<T, G, L>& A, const CSRMatrixT<T, L>& whole, G ncoarse,
                 ParCSRMatrixT<T, G, L>& P) {
  const int rank = rankOf(A.getComm());
  PartitionerT<G, L> columns;
  columns.create(ncoarse, A.getRowPartitioner().getNumParts());
  P.create(A.getRowPartitioner(), columns, {}, A.getDevice(), A.getComm());
  P.beginAssemble();
  if (rank == 0 && whole.getNnz() > 0) {
    const auto host = whole.toDevice(Device());
    for (L i = 0; i < host.getRows(); ++i) {
      for (L k = host.getRowPtr()[i]; k < host.getRowPtr()[i + 1]; ++k) {
        P.setValue(i, host.getColIdx()[k], host.getValues()[k], SetValueMode::Set);
      }
    }
  }
  P.endAssemble();
}

}  // namespace

template <class T, class G, class L>
SeqLevelTransferRugeStuben_T<T, G, L>::~SeqLevelTransferRugeStuben_T() = default;

template <class T, class G, class L>
void SeqLevelTransferRugeStuben_T<T, G, L>::create(const json& params) {
  readJsonKey(params, "eps_strong", eps_strong);
  readJsonKey(params, "do_trunc", do_trunc);
  readJsonKey(params, "eps_trunc", eps_trunc);
}

template <class T, class G, class L>
void SeqLevelTransferRugeStuben_T<T, G, L>::transfer_operators(const Matrix& A, Matrix& P,
                                                               Matrix& R) {
  const int rank = rankOf(A.getComm()), nprocs = sizeOf(A.getComm());
  if (impl == nullptr) impl = std::make_shared<Impl>();
  Impl& work = *impl;
  // On one rank there is nothing to move.
  work.A = nprocs == 1 ? A.getLocalMatrix(-1) : A.gather(0);
  if (rank == 0) {
    if (work.A.getNnz() == 0) {
      work.A = typename Ops::Local();
      work.A.create(static_cast<L>(A.getRows()), static_cast<L>(A.getCols()), 0, A.getDevice());
    }
    Ops::connect(work.A, eps_strong, work.S, work.cf);
    Ops::cfsplit(work.A, work.S, work.cf);
    Ops::interpolation(work.A, work.S, work.cf, do_trunc, eps_trunc, c_mark, f_mark, work.ncoarse,
                       work.P);
  }
  if (nprocs == 1) {
    P.createSeq(work.P, A.getComm());
  } else {
    long ncoarse = static_cast<long>(work.ncoarse);
    MPI_Bcast(&ncoarse, 1, MPI_LONG, 0, A.getComm());
    scatterRows(A, work.P, static_cast<G>(ncoarse), P);
  }
  finish(A, P, R);
}

template <class T, class G, class L>
void SeqLevelTransferRugeStuben_T<T, G, L>::finish(const Matrix& A, const Matrix& P, Matrix& R) {
  R = P.transpose();
  if (!keep) {
    impl.reset();
    return;
  }
  impl->R = R;
  Matrix::multiplyTriple(R, A, P, impl->Ac);
}

MIVO_INSTANCE_SCALARS(SeqLevelTransferRugeStuben_T, long, int)
MIVO_REGISTER_SCALARS(ParLevelTransferT, "LevelTransferRugeStubenSeq", SeqLevelTransferRugeStuben_T)

}  // namespace mivo
