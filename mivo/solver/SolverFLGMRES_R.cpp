// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverFLGMRES_R.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <utility>
#include <vector>

#include "mivo/solver/KrylovRun.hpp"
#include "mivo/solver/fused_vectors.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

namespace {

template <class T>
T squareRoot(const T& a) {
  if constexpr (kIsComplex<T>) {
    const auto root = std::sqrt(std::complex<RealType<T>>(a.re, a.im));
    return T(root.real(), root.imag());
  } else {
    return std::sqrt(a);
  }
}

/// Vectors of one spread, made at their first use or in advance.
template <class Vector>
class VectorList {
 public:
  using Partitioner = typename Vector::Partitioner;

  VectorList(const Partitioner& rows, const Partitioner& cols, const Device& device, int comm)
      : rows_(rows), cols_(cols), device_(device), comm_(comm) {}

  /// Makes all below `size`, as zeros: preconditioners and columns may read what nobody wrote.
  void growTo(std::size_t size) {
    while (list_.size() < size) {
      list_.emplace_back();
      list_.back().create(rows_, cols_, device_, comm_);
      list_.back().fill(0);
    }
  }
  /// Valid until the list goes: growth moves nothing.
  Vector& operator[](std::size_t i) {
    growTo(i + 1);
    return list_[i];
  }

 private:
  Partitioner rows_, cols_;
  Device device_;
  int comm_;
  std::deque<Vector> list_;
};

/// Least-squares problem min |beta e1 - H y| of a cycle, solved column by column by plane rotations
/// (Saad, Iterative Methods for Sparse Linear Systems, 2003, section 6.5.3).
template <class T>
class RotatedHessenberg {
 public:
  using R = RealType<T>;

  void growTo(std::size_t columns) {
    while (columns_.size() < columns) columns_.emplace_back(columns_.size() + 2);
    cosines_.resize(std::max(cosines_.size(), columns));
    sines_.resize(cosines_.size());
    g_.resize(cosines_.size() + 1);
    y_.resize(cosines_.size());
  }
  void start(R beta) {
    growTo(1);
    std::fill(g_.begin(), g_.end(), T(0));
    g_[0] = T(beta);
  }
  /// Column i, of length i + 2; to be filled, then rotated.
  std::vector<T>& column(std::size_t i) {
    growTo(i + 1);
    return columns_[i];
  }
  /// Brings column i to triangular form; returns the norm of the residual.
  R rotate(std::size_t i) {
    std::vector<T>& h = columns_[i];
    for (std::size_t j = 0; j < i; ++j) {
      const T upper = cosines_[j] * h[j] + sines_[j] * h[j + 1];
      h[j + 1] = cosines_[j] * h[j + 1] - sines_[j] * h[j];
      h[j] = upper;
    }
    const T a = h[i], b = h[i + 1];
    T rho = squareRoot(a * a + b * b);
    if (isZero(rho)) rho = T(R(1e-16));
    cosines_[i] = a / rho;
    sines_[i] = b / rho;
    g_[i + 1] = -sines_[i] * g_[i];
    g_[i] = cosines_[i] * g_[i];
    h[i] = a * cosines_[i] + b * sines_[i];
    return abs(g_[i + 1]);
  }
  /// Coefficients for the first k columns.
  const std::vector<T>& solve(std::size_t k) {
    for (std::size_t j = k; j-- > 0;) {
      T sum = g_[j];
      for (std::size_t l = j + 1; l < k; ++l) sum -= columns_[l][j] * y_[l];
      y_[j] = sum / columns_[j][j];
    }
    return y_;
  }

 private:
  std::deque<std::vector<T>> columns_;
  std::vector<T> cosines_, sines_, g_, y_;
};

/// d = sum of y[j] v(j) over j < k, k > 0
template <class T, class Vector, class Choice>
void combine(const std::vector<T>& y, std::size_t k, const Choice& v, Vector& d) {
  Vector::axpby(y[0], v(std::size_t(0)), T(0), d);
  for (std::size_t j = 1; j < k; ++j) Vector::axpy(y[j], v(j), d);
}

}  // namespace

template <class T, class G, class L, class S>
SolverFLGMRES_R_T<T, G, L, S>::~SolverFLGMRES_R_T() = default;

template <class T, class G, class L, class S>
void SolverFLGMRES_R_T<T, G, L, S>::create(const json& params) {
  Base::create(params, "FLGMRES_R");
  readJsonKey(params, "btol", btol);
  readJsonKey(params, "atol", atol);
  readJsonKey(params, "restart", restart);
  readJsonKey(params, "augk", augk);
  readJsonKey(params, "verb", verb);
}

template <class T, class G, class L, class S>
void SolverFLGMRES_R_T<T, G, L, S>::setup(const Operator&) {}

template <class T, class G, class L, class S>
void SolverFLGMRES_R_T<T, G, L, S>::solve(Preconditioner& P, Operator& A, const Vector& b,
                                          Vector& x, int& iter, R& relres) {
  // 64 bits, so that limits near the largest int do not overflow
  const std::int64_t maxIts = this->max_its;
  const std::int64_t own = restart > 0 ? restart : maxIts + 1;  // columns that are not kept ones
  restart = static_cast<std::int32_t>(own);
  if (augk <= 0) augk = 2;
  KrylovRun<T, G, L> run(*this, P, A, b, x,
                         {atol, btol, verb, "======================= FLGMRES ==================="});
  if (!run.begin()) return;
  const std::int64_t kept = augk;
  restart = static_cast<std::int32_t>(own + kept);

  const auto makeList = [&] {
    return VectorList<Vector>(b.getRowPartitioner(), b.getColPartitioner(), A.getDevice(),
                              A.getComm());
  };
  VectorList<Vector> V = makeList(), Z = makeList(), aug = makeList(), work = makeList();
  Vector &r = work[0], &z = work[1], &d = work[2];
  RotatedHessenberg<T> H;
  // Of long cycles, and of those that the iterations cannot fill, most columns may never come: they
  // take their memory as they do.
  constexpr std::int64_t kColumnsAhead = 1000, kKeptAhead = 16;
  if (own <= maxIts) {
    const auto keptAhead = static_cast<std::size_t>(std::min(kept, kKeptAhead));
    const std::size_t ahead = static_cast<std::size_t>(std::min(own, kColumnsAhead)) + keptAhead;
    V.growTo(ahead + 1);
    Z.growTo(ahead);
    aug.growTo(keptAhead);
    H.growTo(ahead);
  }

  // r = b - A x
  run.start(r, [&] {
    b.deepCopy(r);
    A.aAxpby(T(-1), x, T(1), r, nullptr);
    return Vector::normL2(r);
  });

  R& res = run.res;
  int& it = run.its;
  for (std::int64_t cycle = 0; it < maxIts; ++cycle) {
    const std::int64_t length = own + std::min(cycle, kept);
    restart = static_cast<std::int32_t>(length);
    const auto columns = static_cast<std::size_t>(length), plain = static_cast<std::size_t>(own);
    // V_0 = r / beta
    res = Vector::normL2(r);
    Vector::axpby(T(R(1) / res), r, T(0), V[0]);
    H.start(res);

    const int before = it;
    std::size_t i = 0;
    // Vectors read or written in step i, beside product and preconditioner: 2 for Z_i, 2 for the
    // first product of Gram-Schmidt, 4 for each of the i following, 3 for the last subtraction with
    // the norm, 2 to scale V_(i+1).
    for (; i < columns && res > run.tol && it < maxIts; ++i) {
      ++it;
      // z = M V_i, or M of a correction kept
      P.precondition(i < plain ? V[i] : aug[i - plain], z);
      // w = A z
      Vector& w = V[i + 1];
      A.aAxpby(T(1), z, T(0), w, nullptr);
      z.deepCopy(Z[i]);
      // h_j = (w, V_j),  w = w - h_j V_j
      std::vector<T>& h = H.column(i);
      h[0] = T(S(Vector::dot(w, V[0])));
      for (std::size_t j = 0; j < i; ++j) h[j + 1] = T(S(addAndDot(-h[j], V[j], w, V[j + 1])));
      const R norm = combineAndNorm(-h[i], V[i], T(1), w, w);
      h[i + 1] = T(norm);
      if (norm == R(0)) {
        if (this->rank == 0) {
          std::printf("%le happy break i=%d ", static_cast<double>(norm), static_cast<int>(i) + 1);
        }
        break;
      }
      Vector::scale(T(R(1) / norm), w);
      run.status(H.rotate(i));
    }

    if (i > 0) {
      // x = x + sum y_j Z_j
      const std::vector<T>& y = H.solve(i);
      combine(
          y, i, [&](std::size_t j) -> Vector& { return Z[j]; }, d);
      Vector::axpy(T(1), d, x);
      // the same correction before the preconditioner, for later cycles; the oldest goes
      combine(
          y, i, [&](std::size_t j) -> Vector& { return j < plain ? V[j] : aug[j - plain]; }, d);
      d.deepCopy(aug[static_cast<std::size_t>(cycle % kept)]);
    }
    if (run.tol >= res) {
      if (run.table()) {
        std::printf("GMRES iteration %d ||b-Ax||_2 = %e  rel.res %e\n", it,
                    static_cast<double>(res), static_cast<double>(res / run.r0));
      }
      break;
    }
    // A residual that is NaN would begin no column ever.
    if (it == before) break;
    Vector::residual_vec(A, x, b, r);
  }

  run.finish(iter, relres);
}

MIVO_INSTANCE_SCALARS(SolverFLGMRES_R_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverFLGMRES_R", SolverFLGMRES_R_T)

}  // namespace mivo
