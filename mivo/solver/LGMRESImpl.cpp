// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/LGMRESImpl.hpp"

#include <algorithm>
#include <cmath>

#include "mivo/utils/logging.hpp"

namespace mivo {

// The source and the lines of these checks are part of the output format.
template <class T, class G, class L>
LGMRES_Impl<T, G, L>::LGMRES_Impl()
    : initialResidual(
          [](Vector&) { MIVO_CHECK_AT(false, "/project/src/solver/petsc_adapter", 309); }),
      applyOperator([](const Vector&, Vector&) {
        MIVO_CHECK_AT(false, "/project/src/solver/petsc_adapter", 295);
      }),
      unwindPreconditioner(
          [](Vector&) { MIVO_CHECK_AT(false, "/project/src/solver/petsc_adapter", 276); }),
      data_(std::make_unique<Data>()) {}

template <class T, class G, class L>
void LGMRES_Impl<T, G, L>::KSPSetUp_LGMRES() {
  Data& d = *data_;
  const int k = d.max_k;
  const auto resize = [](auto& values, long count) {
    values.resize(static_cast<std::size_t>(count));
  };
  resize(d.hh, long{k + 2} * (k + 1));
  resize(d.hes, long{k + 1} * (k + 1));
  resize(d.grs, k + 2);
  resize(d.nrs, k + 2);
  resize(d.cc, k + 1);
  resize(d.ss, k + 1);
  if (ksp.calc_sings) {
    resize(d.Rsvd, long{k + 3} * (k + 9));
    resize(d.Dsvd, 6 * long{k + 2});
  }
  d.basis.reserve(static_cast<std::size_t>(k + 4 + d.delta_allocate));
  KSPCreateVecs(4 + std::clamp(ksp.max_its, 0, 5) + d.preallocated, d.basis);
  KSPCreateVecs(2 * d.aug_dim + 1, d.augvecs);
  resize(d.aug_order, d.aug_dim);
  ksp.data = data_.get();
}

template <class T, class G, class L>
void LGMRES_Impl<T, G, L>::KSPDestroy_LGMRES() {
  ksp.data = nullptr;
  data_.reset();
}

template <class T, class G, class L>
void LGMRES_Impl<T, G, L>::KSPCreateVecs(int count, std::vector<Vector>& out) {
  ksp.createVectors(*ksp.b, count, out);
}

template <class T, class G, class L>
typename LGMRES_Impl<T, G, L>::Vector& LGMRES_Impl<T, G, L>::basis(int j) {
  const auto index = static_cast<std::size_t>(j);
  while (index >= data_->basis.size()) KSPCreateVecs(data_->delta_allocate, data_->basis);
  return data_->basis[index];
}

template <class T, class G, class L>
int LGMRES_Impl<T, G, L>::slotOfAge(int age) const {
  const auto& order = data_->aug_order;
  return static_cast<int>(std::find(order.begin(), order.end(), age) - order.begin());
}

template <class T, class G, class L>
void LGMRES_Impl<T, G, L>::KSPSolve_LGMRES() {
  Data& d = *data_;
  if (ksp.calc_sings && d.Rsvd.empty()) {
    ksp.print("Must call KSPSetComputeSingularValues() before KSPSetUp() is called");
  }
  ksp.its = 0;
  d.aug_ct = 0;
  d.matvecs = 0;
  std::fill(d.aug_order.begin(), d.aug_order.end(), 0);
  while (ksp.reason == 0) {
    initialResidual(basis(0));
    runCycle();
    if (ksp.reason == 0 && ksp.its >= ksp.max_its) ksp.reason = ksp_reason::kIterationLimit;
  }
}

// Beside the product and the preconditioner step j of a cycle reads or writes 5 (j + 1) + 3
// vectors: 2 for each inner product, 3 for each subtraction, 1 for the norm, 2 for the scaling.
template <class T, class G, class L>
void LGMRES_Impl<T, G, L>::runCycle() {
  Data& d = *data_;
  d.it = -1;
  R res = Vector::normL2(basis(0));
  ksp.rnorm = res;
  if (res == R(0)) {
    ksp.print("Converged due to zero residual norm on entry");
    ksp.reason = ksp_reason::kExact;
    return;
  }
  Vector::scale(T(1 / res), basis(0));
  d.grs[0] = T(res);
  if (ksp.its == 0) ksp.monitor(0, res);
  ksp.reason = ksp.converged(ksp.its, res);

  const int arnoldi = d.max_k - d.aug_ct;
  for (int it = 0; it < d.max_k && ksp.its < ksp.max_its && ksp.reason == 0; ++it) {
    // v_{it+1} = B A v_it, or the image of a correction, the newest first
    if (it < arnoldi) {
      applyOperator(basis(it), basis(it + 1));
      ++d.matvecs;
    } else {
      image(slotOfAge(it - arnoldi + 1)).deepCopy(basis(it + 1));
    }
    const bool complete = !orthogonalise(it);
    d.it = it;
    if (!updateHessenberg(it, complete, res)) {
      ksp.reason = ksp_reason::kDivisionByZero;
      d.it = it - 1;
      break;
    }
    ++ksp.its;
    ksp.rnorm = res;
    ksp.monitor(ksp.its, res);
    ksp.reason = ksp.converged(ksp.its, res);
    if (complete) {
      if (ksp.reason == 0) {
        ksp.print("Reached happy break down, but convergence was not indicated. Residual norm = %g",
                  static_cast<double>(res));
        ksp.reason = ksp_reason::kBreakdown;
      }
      break;
    }
  }
  if (d.it < 0) return;
  KSPLGMRESBuildSoln(*ksp.x, *ksp.x, d.it);
  if (ksp.reason == 0) keepCorrection(d.it);
}

template <class T, class G, class L>
bool LGMRES_Impl<T, G, L>::orthogonalise(int it) {
  Vector& next = basis(it + 1);
  // h_j = (v_j, v),  v = v - h_j v_j
  for (int j = 0; j <= it; ++j) {
    const T h = Vector::dot(basis(j), next);
    Vector::axpy(-h, basis(j), next);
    HH(j, it) = HES(j, it) = h;
  }
  const R norm = Vector::normL2(next);
  HH(it + 1, it) = HES(it + 1, it) = T(norm);
  const double bound = std::min(data_->haptol, static_cast<double>(norm / abs(at(data_->grs, it))));
  if (static_cast<double>(norm) > bound) {
    Vector::scale(T(1 / norm), next);
    return true;
  }
  ksp.print("Detected happy breakdown, current hapbnd = %g tt = %g\n", bound,
            static_cast<double>(norm));
  return false;
}

template <class T, class G, class L>
bool LGMRES_Impl<T, G, L>::updateHessenberg(int it, bool complete, R& res) {
  Data& d = *data_;
  for (int j = 0; j < it; ++j) {
    const T upper = HH(j, it), lower = HH(j + 1, it);
    HH(j, it) = conj(at(d.cc, j)) * upper + conj(at(d.ss, j)) * lower;
    HH(j + 1, it) = at(d.cc, j) * lower - at(d.ss, j) * upper;
  }
  if (complete) {
    res = R(0);
    return true;
  }
  const T upper = HH(it, it), lower = HH(it + 1, it);
  const R length = std::sqrt(absSquared(upper) + absSquared(lower));
  if (length == R(0)) return false;
  const T c = upper / T(length), s = lower / T(length);
  at(d.cc, it) = c;
  at(d.ss, it) = s;
  HH(it, it) = conj(c) * upper + conj(s) * lower;
  at(d.grs, it + 1) = -(s * at(d.grs, it));
  at(d.grs, it) = conj(c) * at(d.grs, it);
  res = abs(at(d.grs, it + 1));
  return true;
}

template <class T, class G, class L>
void LGMRES_Impl<T, G, L>::KSPBuildSolution_LGMRES(Vector& out) {
  ksp.x->deepCopy(out);
  if (data_->it >= 0) KSPLGMRESBuildSoln(*ksp.x, out, data_->it);
}

template <class T, class G, class L>
void LGMRES_Impl<T, G, L>::KSPLGMRESBuildSoln(const Vector& from, Vector& to, int it) {
  Data& d = *data_;
  for (int i = it; i >= 0; --i) {
    if (isZero(HH(i, i))) {
      ksp.print("HH(it,it) is identically zero; it = %d GRS(it) = %g", i,
                static_cast<double>(abs(at(d.grs, i))));
      ksp.reason = ksp_reason::kBreakdown;
      from.deepCopy(to);
      return;
    }
    T sum = at(d.grs, i);
    for (int j = i + 1; j <= it; ++j) sum -= HH(i, j) * at(d.nrs, j);
    at(d.nrs, i) = sum / HH(i, i);
  }
  Vector& t = correction();
  t.fill(T(0));
  const int arnoldi = d.max_k - d.aug_ct;
  for (int j = 0; j <= std::min(it, arnoldi - 1); ++j) Vector::axpy(at(d.nrs, j), basis(j), t);
  unwindPreconditioner(t);
  for (int j = arnoldi; j <= it; ++j) {
    Vector::axpy(at(d.nrs, j), augmentation(slotOfAge(j - arnoldi + 1)), t);
  }
  from.deepCopy(to);
  Vector::axpy(T(1), t, to);
}

template <class T, class G, class L>
void LGMRES_Impl<T, G, L>::keepCorrection(int it) {
  Data& d = *data_;
  if (d.aug_dim == 0) return;
  const R norm = Vector::normL2(correction());
  if (norm == R(0)) return;
  const int slot = d.aug_ct < d.aug_dim ? d.aug_ct++ : slotOfAge(d.aug_dim);
  for (int& age : d.aug_order) age += age > 0 ? 1 : 0;
  at(d.aug_order, slot) = 1;
  correction().deepCopy(augmentation(slot));
  Vector::scale(T(1 / norm), augmentation(slot));
  // B A z = V H y / |z|
  Vector& Az = image(slot);
  Az.fill(T(0));
  for (int i = 0; i <= it + 1; ++i) {
    T sum(0);
    for (int j = std::max(i - 1, 0); j <= it; ++j) sum += HES(i, j) * at(d.nrs, j);
    Vector::axpy(sum / T(norm), basis(i), Az);
  }
}

MIVO_INSTANCE_SCALARS(LGMRES_Impl, long, int)

}  // namespace mivo
