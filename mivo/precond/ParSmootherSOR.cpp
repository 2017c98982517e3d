// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParSmootherSOR.hpp"

#include <typeinfo>

#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/precond/ParSmootherSSOR.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

namespace {

constexpr const char* kNoMatrix = "SOR: no matrix was set up";

}  // namespace

template <class T, class G, class L>
ParSmootherSOR_T<T, G, L>::~ParSmootherSOR_T() = default;

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::create(const json& params) {
  ParSolverT<T, G, L>::create(params, "SOR");
  double factor = 1;
  if (readJsonKey(params, "relax", factor)) relax = T(static_cast<R>(factor));
  readJsonKey(params, "forward", forward);
  readJsonKey(params, "nsweeps", nsweeps);
  readJsonKey(params, "initial_zero", initial_zero);
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::setup(const Operator& A) {
  this->setupTime.start();
  const auto* csr = dynamic_cast<const ParCSRMatrixT<T, G, L>*>(&A);
  if (csr != nullptr) {
    matrix = *csr;
    has_matrix = true;
    diagonal = matrix.getDiag();
    matrix_rank = rankOf(matrix.getComm());
  } else {
    MIVO_LOG(0, true) << "ParSOR setup should be a ParCSRMatrix!";
  }
  this->setupTime.stop();
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::bringGhosts(const Vector& x) {
  // All ranks know the partitions. Where only this rank's piece does not fit, the exchange ends the
  // process before it sends anything.
  const bool fits = x.getCols() <= 1 && x.getRowPartitioner() == matrix.getColPartitioner() &&
                    x.getComm() == matrix.getComm() &&
                    x.getDevice().type == matrix.getDevice().type;
  if (x_is_zero && fits) {
    matrix.prepareMatVec(false);
    matrix.getSpMVCommPattern().fillNeeded(T(0));
  } else {
    matrix.exchangeMatVec(x, {}, {}, {}, nullptr);
  }
  x_is_zero = false;
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::sor_step(const Vector& b, Vector& x, double omega, bool ascending,
                                         int* rowOrder) {
  MIVO_CHECK(has_matrix) << kNoMatrix;
  const auto local_b = b.getLocalMatrix(), local_x = x.getLocalMatrix();
  const auto local_d = diagonal.getLocalMatrix();
  bringGhosts(x);
  matrix.getRawMat(host_blocks);

  const Device device = matrix.getDevice();
  if (device.type != host_blocks.getDevice().type) {
    device_blocks.resize(host_blocks.getRows(), host_blocks.getCols(), device);
    host_blocks.getDevice().rawCopyTo(
        static_cast<std::size_t>(host_blocks.getSize()) * sizeof(*host_blocks.getData()),
        host_blocks.getData(), device, device_blocks.getData());
  } else {
    device_blocks = host_blocks;
  }
  SpBlasOps<T, L>::par_sor(device, matrix.getLocalRows(), matrix_rank, device_blocks.getSize(),
                           device_blocks.getData(), local_b.getData(), local_d.getData(),
                           local_x.getData(), T(static_cast<R>(omega)), ascending ? 1 : 0,
                           rowOrder);
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::sweeps(const char* what, const Vector& b, Vector& x) {
  for (int i = 0; i < nsweeps; ++i) {
    sor_step(b, x, static_cast<double>(realPart(relax)), forward, nullptr);
    if (this->verbose != 0) {
      const R norm = Vector::residual(matrix, x, b, scratch);
      MIVO_LOG(3, true) << what << i << " " << norm;
    }
  }
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::startFromZero(Vector& x) {
  x.fill(T(0));
  // A class of a program may change x before its step.
  const std::type_info& type = typeid(*this);
  x_is_zero = nsweeps > 0 &&
              (type == typeid(ParSmootherSOR_T) || type == typeid(ParSmootherSSOR_T<T, G, L>));
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::smooth(const Vector& b, Vector& x) {
  sweeps("smooth ", b, x);
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::smoothFromZero(const Vector& b, Vector& x) {
  startFromZero(x);
  smooth(b, x);
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::precondition(const Vector& b, Vector& x) {
  this->precondTime.start();
  if (initial_zero) startFromZero(x);
  sweeps("precondition ", b, x);
  this->precondTime.stop();
}

template <class T, class G, class L>
void ParSmootherSOR_T<T, G, L>::solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x,
                                      int& iter, R& relres) {
  MIVO_CHECK(has_matrix) << kNoMatrix;
  this->takeRanks(A);
  matrix_rank = rankOf(matrix.getComm());
  const R bnorm = Vector::normL2(b);
  const R r0 = Vector::residual(matrix, x, b, scratch);

  this->beginSolve(P, A, b, x, iter, relres);
  int it = 1;
  R rel = r0 / bnorm;
  for (; it <= this->max_its; ++it) {
    sor_step(b, x, static_cast<double>(realPart(relax)), forward, nullptr);
    const R res = Vector::residual(matrix, x, b, scratch);
    rel = res / bnorm;
    this->logSolverStatus(P, it, res, res / r0, rel);
    if (this->rtol > rel) break;
  }
  iter = it;
  relres = rel;
  this->finishSolve(P, this->max_its, it, rel);
}

template <class T, class G, class L>
std::size_t ParSmootherSOR_T<T, G, L>::getBytes() const {
  return ParSolverT<T, G, L>::getBytes() + diagonal.getBytes() + scratch.getBytes() +
         host_blocks.getBytes() + device_blocks.getBytes();
}

MIVO_INSTANCE_SCALARS(ParSmootherSOR_T, long, int)
MIVO_REGISTER_SCALARS(ParSmootherT, "SmootherSOR", ParSmootherSOR_T)
MIVO_REGISTER_SCALARS(ParPreconditionerT, "PrecondSOR", ParSmootherSOR_T)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverSOR", ParSmootherSOR_T)

}  // namespace mivo
