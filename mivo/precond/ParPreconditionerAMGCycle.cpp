// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParPreconditionerAMG.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::precondition(const Vector& b, Vector& x) {
  this->precondTime.start();
  createIfEmpty(b, x);
  cycle(0, b, x, true);
  ++step;
  this->precondTime.stop();
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::amg_step(const Vector& b, Vector& x) {
  const bool created = createIfEmpty(b, x);
  cycle(0, b, x, created);
  ++step;
}

template <class T, class G, class L>
bool ParPreconditionerAMG_T<T, G, L>::createIfEmpty(const Vector& b, Vector& x) const {
  if (x.getSize() != 0) return false;
  x.create(fine.getRowPartitioner(), b.getColPartitioner(), fine.getDevice(), fine.getComm());
  return true;
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::vcycle_recursive(int level, const Vector& b, Vector& x) {
  cycle(level, b, x, false);
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::cycle(int l, const Vector& b, Vector& x, bool fromZero) {
  const int count = static_cast<int>(levels.size());
  // The norms and their reductions are for those who ask.
  const bool watch = verbose > 2;
  MIVO_CHECK(has_matrix) << "AMG: no matrix was set up";
  // Smoothers that begin from zero write x themselves.
  if (fromZero && (watch || l >= count)) x.fill(T(0));
  if (l >= count) return;
  Level& level = levels[static_cast<std::size_t>(l)];
  const auto traceEnds = [&](const char* what, const char* end) {
    if (verbose <= 3) return;
    const R norm = Vector::residual(level.A, x, b);
    MIVO_LOG(3, this->rank == 0) << tracePrefix(l) << what << " level " << l << "/" << count
                                 << " residual " << norm << end;
  };
  if (profile) level.cycle_time.start();
  traceEnds("BEGIN", "");
  if (l == count - 1) {
    coarsestStep(l, b, x, fromZero);
  } else {
    const bool coarser = levels[static_cast<std::size_t>(l) + 1].A.getRows() > 0;
    R r[4] = {};
    if (watch) r[0] = Vector::residual(level.A, x, b);
    smoothOnce(*level.pre_smoother, b, x, fromZero);

    // r = b - A x
    if (watch || coarser) Vector::residual_vec(level.A, x, b, level.residual);
    if (watch) r[1] = Vector::normL2(level.residual);
    traceChange(l, " presmooth: residual from ", r[0], r[1]);
    if (coarser) correctFromBelow(l, x);
    if (watch) r[2] = Vector::residual(level.A, x, b);
    traceChange(l, " correct: residual from ", r[1], r[2]);

    level.post_smoother->smooth(b, x);
    if (watch) {
      r[3] = Vector::residual(level.A, x, b);
      traceChange(l, " postsmooth: residual from ", r[2], r[3], "\n");
      for (int k = 0; k < 3; ++k) level.accumulated[k] *= static_cast<double>(r[k + 1] / r[k]);
    }
  }
  traceEnds("END", "\n");
  if (profile) level.cycle_time.stop();
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::smoothOnce(Smoother& smoother, const Vector& b, Vector& x,
                                                 bool fromZero) {
  if (fromZero) {
    smoother.smoothFromZero(b, x);
  } else {
    smoother.smooth(b, x);
  }
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::correctFromBelow(int l, Vector& x) {
  Level& level = levels[static_cast<std::size_t>(l)];
  const auto traceNorms = [&](const char* what, const Vector& from, const Vector& to) {
    if (verbose <= 3) return;
    const R before = Vector::normL2(from);
    traceChange(l, what, before, Vector::normL2(to));
  };
  // b_c = R r
  level.R.matVec(level.residual, level.coarse_rhs, nullptr);
  traceNorms(" restrict: norm from ", level.residual, level.coarse_rhs);
  if (!level.coarse_solution.hasShapeOf(level.coarse_rhs)) {
    level.coarse_solution.create(level.coarse_rhs.getRowPartitioner(), level.coarse_rhs.getDevice(),
                                 level.coarse_rhs.getComm());
  }

  // x_c from zero
  if (profile) level.cycle_time.stop();
  cycle(l + 1, level.coarse_rhs, level.coarse_solution, true);
  if (profile) level.cycle_time.start();

  // x = x + P x_c
  level.P.matVec(level.coarse_solution, level.correction, nullptr);
  traceNorms(" prolongate: norm from ", level.coarse_solution, level.correction);
  Vector::axpy(T(1), level.correction, x);
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::coarsestStep(int l, const Vector& b, Vector& x,
                                                   bool fromZero) {
  Level& level = levels[static_cast<std::size_t>(l)];
  const bool trace = verbose > 3;
  const R before = trace ? Vector::residual(level.A, x, b) : R(0);
  if (level.coarse_solver != nullptr) {
    if (fromZero) x.fill(T(0));
    // The solver's own limits apply.
    int iter = 1000;
    R relres = R(1e-10);
    level.coarse_solver->solve(level.A, b, x, iter, relres);
  } else {
    smoothOnce(*level.coarse_pre_smoother, b, x, fromZero);
    level.coarse_post_smoother->smooth(b, x);
  }
  const R after = trace ? Vector::residual(level.A, x, b) : R(0);
  traceChange(l, " coarse: residual from ", before, after);
}

template <class T, class G, class L>
std::string ParPreconditionerAMG_T<T, G, L>::tracePrefix(int l) const {
  return string_printf("STEP:%2d ", static_cast<int>(step)) +
         std::string(4 * static_cast<std::size_t>(l), ' ');
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::traceChange(int l, const char* what, R before, R after,
                                                  const char* end) const {
  MIVO_LOG(3, verbose > 3 && this->rank == 0)
      << tracePrefix(l) << "level " << l << what << before << " to " << after << end;
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::solve(Preconditioner& P, Operator& A, const Vector& b,
                                            Vector& x, int& iter, R& relres) {
  MIVO_CHECK(has_matrix) << "AMG: no matrix was set up";
  Matrix matrix = levels.empty() ? fine : levels[0].A;
  const R r0 = Vector::residual(matrix, x, b, scratch);
  const R bnorm = Vector::normL2(b);
  this->beginSolve(P, A, b, x, iter, relres);
  R r = r0;
  int it = 0;
  for (; it < cycle_limit; ++it) {
    amg_step(b, x);
    r = Vector::residual(matrix, x, b, scratch);
    this->logSolverStatus(P, it, r, r / r0, r / bnorm);
    if (static_cast<double>(r) < cycle_tolerance * static_cast<double>(bnorm)) break;
  }
  iter = it;
  relres = r / bnorm;
  this->finishSolve(P, cycle_limit, it, relres);
  if (verbose <= 2 || this->rank != 0) return;
  MIVO_LOG(3, true) << "AccuError level  presmooth correction postsmooth";
  for (std::size_t l = 0; l < levels.size(); ++l) {
    const double* a = levels[l].accumulated;
    MIVO_LOG(3, true) << "AccuError " << l << " " << a[0] << " " << a[1] << " " << a[2];
  }
}

MIVO_INSTANCE_SCALARS(ParPreconditionerAMG_T, long, int)

}  // namespace mivo
