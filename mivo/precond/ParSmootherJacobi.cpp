// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParSmootherJacobi.hpp"

#include <typeinfo>
#include <vector>

#include "mivo/ops/FusedOps.hpp"
#include "mivo/precond/ParSmootherJacobiLp.hpp"
#include "mivo/solver/fused_vectors.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

namespace {

constexpr const char* kNoMatrix = "Jacobi: no matrix was set up";

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

  int nonfinite = 0;
  std::vector<CSRMatrixT<T, L>> blocks;
  matrix.getLocalMatrix(blocks);
  for (const auto& block : blocks) {
    const L count =
        FusedOps<T, L>::count_nonfinite(block.getDevice(), block.getNnz(), block.getValues());
    if (count > 0) nonfinite = 1;
  }
  // Without rows it may be a default-built one, whose communicator is another.
  is_finite = matrix.getRows() == 0 || sumOverRanks(nonfinite, matrix.getComm()) == 0;
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
void ParSmootherJacobi_T<T, G, L>::correct(Vector& x) {
  Vector::axypbz(relax, inverse, scratch, T(1), x);
}

template <class T, class G, class L>
void ParSmootherJacobi_T<T, G, L>::sweep(const Vector& b, Vector& x) {
  MIVO_CHECK(has_matrix) << kNoMatrix;
  Vector::residual_vec(matrix, x, b, scratch);
  correct(x);
}

template <class T, class G, class L>
bool ParSmootherJacobi_T<T, G, L>::sweepFromZero(const Vector& b, Vector& x) {
  // Sweeps with a product exchange values, so that all ranks have to come to the same decision: it
  // is taken from the set-up and from partitions, which all of them know. Where only this rank's
  // pieces do not fit, the product ends the process before it sends anything.
  const auto& rows = matrix.getRowPartitioner();
  const bool fits = is_finite && rows == matrix.getColPartitioner() &&
                    rows == b.getRowPartitioner() && rows == x.getRowPartitioner() &&
                    b.getCols() == 1 && x.getCols() == 1 && matrix.getComm() == x.getComm() &&
                    fitTogether(inverse, b, x);
  if (!fits) return false;

  const bool same = dataOf(b) == dataOf(x);
  if (same) {
    x.fill(T(0));
    b.deepCopy(scratch);
  }
  // A x is exactly zero, so the residual is b.
  const auto to = x.getLocalMatrix();
  FusedOps<T, L>::jacobi_from_zero(to.getDevice(), to.getSize(), relax, dataOf(inverse),
                                   dataOf(same ? scratch : b), to.getData());
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
    sweep(b, x);
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
    if (i > 0 || !first_done) sweep(b, x);
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
      if (i > 0 || !first_done) sweep(b, x);
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
  if (this->max_its < 1) {
    iter = 1;
    relres = Vector::residual(matrix, x, b, scratch) / bnorm;
    return;
  }
  int it = 1;
  R rel;
  while (true) {
    // the residual before the update that this sweep makes
    rel = Vector::residual(matrix, x, b, scratch) / bnorm;
    correct(x);
    MIVO_LOG(3, this->verbose != 0) << "solve " << it << " " << rel;
    if (this->rtol > rel) break;
    ++it;
    if (it > this->max_its) break;
  }
  iter = it;
  relres = rel;
}

template <class T, class G, class L>
std::size_t ParSmootherJacobi_T<T, G, L>::getBytes() const {
  return ParSolverT<T, G, L>::getBytes() + inverse.getBytes() + scratch.getBytes();
}

MIVO_INSTANCE_SCALARS(ParSmootherJacobi_T, long, int)
MIVO_REGISTER_SCALARS(ParSmootherT, "SmootherJacobi", ParSmootherJacobi_T)
MIVO_REGISTER_SCALARS(ParPreconditionerT, "PrecondJacobi", ParSmootherJacobi_T)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverJacobi", ParSmootherJacobi_T)

}  // namespace mivo
