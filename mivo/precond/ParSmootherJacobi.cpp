// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParSmootherJacobi.hpp"

#include <typeinfo>
#include <vector>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/ops/FusedOps.hpp"
#include "mivo/precond/ParSmootherJacobiLp.hpp"
#include "mivo/solver/fused_vectors.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

namespace {

constexpr const char* kNoMatrix = "Jacobi: no matrix was set up";

int sizeOf(int comm) {
  int size = 1;
  MPI_Comm_size(comm, &size);
  return size;
}

}  // namespace

template <class T, class G, class L>
ParSmootherJacobi_T<T, G, L>::~ParSmootherJacobi_T() = default;

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::create(const json& params) {
  double factor = 1;
  if (readJsonKey(params, "relax", factor)) relax = T(static_cast<R>(factor));
  readJsonKey(params, "nsweeps", nsweeps);
  readJsonKey(params, "initial_zero", initial_zero);
  readJsonKey(params, "max_iters", max_iters);
}

template <class T, class G, class L>
bool ParSmootherJacobi_T<T, G, L>::shareMatrix(const Operator& A) {
  const auto* csr = dynamic_cast<const ParCSRMatrixT<T, G, L>*>(&A);
  if (csr == nullptr) {
    MIVO_LOG(0, true) << "ParSOR setup should be a ParCSRMatrix!";
    return false;
  }
  matrix = *csr;
  has_matrix = true;

  int self = 0;
  MPI_Comm_rank(matrix.getComm(), &self);
  std::vector<CSRMatrixT<T, L>> blocks;
  matrix.getLocalMatrix(blocks);
  zero_start_is_trivial = static_cast<std::size_t>(self) < blocks.size() &&
                          blocks[static_cast<std::size_t>(self)].getNnz() > 0;
  for (const auto& block : blocks) {
    const L nonfinite =
        FusedOps<T, L>::count_nonfinite(block.getDevice(), block.getNnz(), block.getValues());
    zero_start_is_trivial = zero_start_is_trivial && nonfinite == 0;
  }
  return true;
}

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::setup(const Operator& A) {
  this->setupTime.start();
  if (shareMatrix(A)) {
    inverse = matrix.getDiag();
    Vector::reciprocal(T(1), inverse);
  }
  this->setupTime.stop();
}

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::sweep(const Vector& b, Vector& x, bool needNorm) {
  MIVO_CHECK(has_matrix) << kNoMatrix;
  // On one rank nobody sees the norm of a sweep that does not need it, while on several the
  // reduction is a collective that has to keep its place.
  if (needNorm || sizeOf(matrix.getComm()) > 1) {
    last_residual = static_cast<double>(Vector::residual(matrix, x, b, scratch));
  } else {
    Vector::residual_vec(matrix, x, b, scratch);
  }
  Vector::axypbz(relax, inverse, scratch, T(1), x);
}

template <class T, class G, class L>
bool ParSmootherJacobi_T<T, G, L>::sweepFromZero(const Vector& b, Vector& x) {
  const auto d = inverse.getLocalMatrix(), from = b.getLocalMatrix(), to = x.getLocalMatrix();
  const bool alike = zero_start_is_trivial && matrix.getRows() == b.getRows() &&
                     matrix.getCols() == x.getRows() && x.getCols() == 1 && b.getCols() == 1 &&
                     d.getSize() == from.getSize() && d.getSize() == to.getSize() &&
                     d.getDevice().type == from.getDevice().type &&
                     d.getDevice().type == to.getDevice().type && matrix.getComm() == x.getComm() &&
                     to.getData() != from.getData();
  if (!alike) return false;

  // Ax is zero, so the residual is b and no product is needed.
  if (sizeOf(matrix.getComm()) == 1) {
    FusedOps<T, L>::jacobi_from_zero(d.getDevice(), d.getSize(), relax, d.getData(), from.getData(),
                                     to.getData());
    return true;
  }
  // On several ranks the messages and the norm keep their places. Of the vector that is exchanged
  // only what other ranks want is read, so that it need not be x, filled anew each time.
  if (!(zeros.getRowPartitioner() == x.getRowPartitioner()) || zeros.getComm() != x.getComm() ||
      zeros.getDevice().type != x.getDevice().type) {
    zeros.create(x.getRowPartitioner(), x.getDevice(), x.getComm());
    zeros.fill(T(0));
  }
  R squares{};
  const auto work = [&] {
    squares = FusedOps<T, L>::jacobi_from_zero_squares(d.getDevice(), d.getSize(), relax,
                                                       d.getData(), from.getData(), to.getData());
  };
  // One reference fits into a std::function without memory of its own.
  matrix.exchangeMatVec(
      zeros, [&work](int, auto*) { work(); }, {}, {}, nullptr);
  last_residual = static_cast<double>(normOfLocalSquares(squares, b.getComm()));
  return true;
}

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::logResidual(const char* what, int sweepNumber, const Vector& b,
                                               const Vector& x) {
  if (this->verbose == 0) return;
  const R norm = Vector::residual(matrix, x, b, scratch);
  MIVO_LOG(3, true) << what << sweepNumber << " " << norm;
}

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::smooth(const Vector& b, Vector& x) {
  for (int i = 0; i < nsweeps; ++i) {
    sweep(b, x, false);
    logResidual("smooth ", i, b, x);
  }
}

template <class T, class G, class L>
bool ParSmootherJacobi_T<T, G, L>::startFromZero(const Vector& b, Vector& x) {
  if (nsweeps > 0 && sweepFromZero(b, x)) return true;
  x.fill(T(0));
  return false;
}

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::smoothFromZero(const Vector& b, Vector& x) {
  // A class of a program may smooth in its own way.
  const std::type_info& type = typeid(*this);
  if (type != typeid(ParSmootherJacobi_T) && type != typeid(ParSmootherJacobiLp_T<T, G, L>)) {
    return ParSmootherT<T, G, L>::smoothFromZero(b, x);
  }
  const bool first_done = startFromZero(b, x);
  for (int i = 0; i < nsweeps; ++i) {
    if (i > 0 || !first_done) sweep(b, x, false);
    logResidual("smooth ", i, b, x);
  }
}

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::precondition(const Vector& b, Vector& x) {
  this->precondTime.start();
  const bool exhausted = max_iters >= 1 && apply_count >= max_iters;
  bool first_done = false;
  if (initial_zero && exhausted) x.fill(T(0));
  if (initial_zero && !exhausted) first_done = startFromZero(b, x);
  if (exhausted) {
    b.deepCopy(x);
  } else {
    for (int i = 0; i < nsweeps; ++i) {
      ++apply_count;
      if (i > 0 || !first_done) sweep(b, x, false);
      logResidual("precondition ", i, b, x);
    }
  }
  this->precondTime.stop();
}

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::solve(Preconditioner&, Operator&, const Vector& b, Vector& x,
                                         int& iter, R& relres) {
  MIVO_CHECK(has_matrix) << kNoMatrix;
  const R bnorm = Vector::normL2(b);
  const R r0 = Vector::residual(matrix, x, b, scratch);
  if (this->max_its < 1) {
    iter = 1;
    relres = r0 / bnorm;
    return;
  }
  int it = 1;
  R rel;
  while (true) {
    sweep(b, x, true);
    // the residual before the update that this sweep made
    rel = static_cast<R>(last_residual) / bnorm;
    MIVO_LOG(3, this->verbose != 0) << "solve " << it << " " << rel;
    if (this->rtol > rel) break;
    ++it;
    if (it > this->max_its) break;
  }
  iter = it;
  relres = rel;
}

MIVO_INSTANCE_SCALARS(ParSmootherJacobi_T, long, int)
MIVO_REGISTER_SCALARS(ParSmootherT, "SmootherJacobi", ParSmootherJacobi_T)
MIVO_REGISTER_SCALARS(ParPreconditionerT, "PrecondJacobi", ParSmootherJacobi_T)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverJacobi", ParSmootherJacobi_T)

}  // namespace mivo
