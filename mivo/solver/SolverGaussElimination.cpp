// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverGaussElimination.hpp"

#include "mivo/mat/CrossData.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/ops/MatOps.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

namespace {

/// rhs = A^-1 rhs on one rank, with the times of the two steps.
template <class T, class L>
void solveDense(const CSRMatrixT<T, L>& A, L n, MatrixT<T, L, MatrixLayoutRowMajor>& rhs,
                TickMeter& factorTime, TickMeter& sweepTime) {
  using Ops = MatOps<T, L, MatrixLayoutRowMajor>;
  const Device device = rhs.getDevice();
  MatrixT<T, L, MatrixLayoutRowMajor> dense;
  dense.create(n, n, device);
  dense.fill(T(0));
  // A matrix without entries is gathered without its shape.
  if (A.getNnz() > 0) {
    SpBlasOps<T, L>::csr2dense(device, n, n, A.getRowPtr(), A.getColIdx(), A.getValues(),
                               dense.getData());
  }
  // A = L U
  factorTime.start();
  CrossData<int> status(device, 0);
  Ops::mat_lu_decomp(device, 1, n, status.device.getData(), dense.getData(), n, nullptr);
  status.toHost();
  factorTime.stop();
  // x = U^-1 L^-1 b, whatever the status
  sweepTime.start();
  MIVO_CHECK(rhs.getData() != nullptr) << "Gauss elimination: no right-hand side";
  Ops::mat_lu_decomp(device, 2, n, status.device.getData(), dense.getData(), n, rhs.getData());
  status.toHost();
  sweepTime.stop();
}

}  // namespace

template <class T, class G, class L>
SolverGaussElimination_T<T, G, L>::~SolverGaussElimination_T() = default;

template <class T, class G, class L>
void SolverGaussElimination_T<T, G, L>::create(const json& params) {
  Base::create(params, "GaussElim");
}

template <class T, class G, class L>
void SolverGaussElimination_T<T, G, L>::setup(const Operator&) {}

template <class T, class G, class L>
void SolverGaussElimination_T<T, G, L>::solve(Preconditioner& P, Operator& A, const Vector& b,
                                              Vector& x, int& iter, R& relres) {
  this->takeRanks(A);
  const auto* matrix = dynamic_cast<const ParCSRMatrixT<T, G, L>*>(&A);
  MIVO_CHECK(matrix != nullptr) << "Gauss elimination needs a ParCSRMatrixT";
  const G rows = matrix->getRows();
  MIVO_CHECK(rows == matrix->getCols()) << "Gauss elimination needs a square matrix, this one is "
                                        << rows << " x " << matrix->getCols();
  this->beginSolve(P, A, b, x, iter, relres);
  R rel{};
  if (rows > 0) {
    if (x.getSize() == 0) {
      x.create(matrix->getColPartitioner(), matrix->getDevice(), matrix->getComm());
    }
    for (const Vector* v : {&b, static_cast<const Vector*>(&x)}) {
      MIVO_CHECK(v->getRows() == rows && v->getCols() == 1)
          << "Gauss elimination needs " << (v == &b ? "a right-hand side" : "a solution") << " of "
          << rows << " x 1, found " << v->getRows() << " x " << v->getCols();
    }
    solveOnRankZero(*matrix, b, x);
    // Only the last line tells it.
    if (this->verbose > 0) {
      const R bnorm = Vector::normL2(b);
      rel = Vector::residual(A, x, b) / (bnorm > 0 ? bnorm : R(1));
    }
  }
  this->finishSolve(P, this->max_its, rows > 0 ? 1 : 0, rel);
}

template <class T, class G, class L>
void SolverGaussElimination_T<T, G, L>::solveOnRankZero(const ParCSRMatrixT<T, G, L>& A,
                                                        const Vector& b, Vector& x) {
  const G rows = A.getRows();
  const CSRMatrixT<T, L> whole = A.gather(0);
  auto rhs = b.gather(0);
  if (this->rank == 0) {
    rhs = rhs.toDevice(A.getDevice());
    solveDense(whole, static_cast<L>(rows), rhs, factorTime, sweepTime);
    MIVO_LOG(3, this->verbose > 1) << "gauss_elim time: fact " << factorTime.getTimeSec() * 1e3
                                   << " ms, solve " << sweepTime.getTimeSec() * 1e3 << " ms";
    rhs = rhs.toDevice(Device());
  }
  // Through the host, since the ranks may have different devices.
  Vector found;
  found.scatter(A.getComm(), 0, rhs, x.getRowPartitioner());
  const auto piece = found.getLocalMatrix();
  const auto target = x.getLocalMatrix();
  Device().rawCopyTo(static_cast<std::size_t>(piece.getSize()) * sizeof(T), piece.getData(),
                     target.getDevice(), target.getData());
}

MIVO_INSTANCE_SCALARS(SolverGaussElimination_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverGaussElim", SolverGaussElimination_T)

}  // namespace mivo
