// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <initializer_list>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// One run of an iterative solver in the frame: its start, the count of its steps and what it
/// tells. Lives in a call of `solve`, whose arguments it refers to.
///
/// For methods that measure |b - A x| and end when it is not above max(atol, btol |b|, rtol |r0|).
/// Everything is collective except for `create`, `goesOn` and `table`.
template <class T, class G, class L>
class MIVO_API KrylovRun {
 public:
  using Solver = ParSolverT<T, G, L>;
  using R = typename Solver::R;
  using Operator = typename Solver::Operator;
  using Preconditioner = typename Solver::Preconditioner;
  using Vector = typename Solver::Vector;

  /// What methods have beside the keys of the frame.
  struct Options {
    double atol = 0;               ///< key "atol", absolute tolerance
    double btol = 0;               ///< key "btol", tolerance relative to |b|
    std::int32_t verb = 0;         ///< key "verb", above 0 for a table on standard output
    const char* title = "";        ///< of that table
    bool row_after_status = true;  ///< a row of it follows that of the frame
  };

  R bnorm{};             ///< |b|
  R r0{};                ///< |r| at the start
  R res{};               ///< |r| now
  R tol{};               ///< |r| that is small enough
  std::int32_t its = 0;  ///< steps begun

  KrylovRun(Solver& solver, Preconditioner& P, Operator& A, const Vector& b, Vector& x,
            const Options& options)
      : solver_(solver), P_(P), A_(A), b_(b), x_(x), options_(options) {}

  /// `begin`, `create` and `start`: false when the solve has ended.
  bool start(std::initializer_list<Vector*> work, Vector& r) {
    if (!begin()) return false;
    create(work);
    start(r);
    return true;
  }

  /// Ranks of the solver, |b|. A zero b has the solution x = 0: then false, and `solve` returns
  /// without results.
  bool begin();
  /// Makes work vectors in the shape of b, on the device of A. Their values are undefined.
  void create(std::initializer_list<Vector*> work) const;
  /// r = b - A x, without a product for x = 0; then norm, tolerance, first line, head and first row
  /// of the tables.
  void start(Vector& r);
  /// The same with `residual` in place of the product, which makes r and returns |r|.
  template <class Residual>
  void start(Vector& r, const Residual& residual) {
    startWith(startsFromZero() ? takeRightHandSide(r) : residual());
  }

  /// A residual that is NaN is not above the tolerance either.
  bool goesOn() const { return res > tol && its < solver_.max_its; }
  /// Ends step number `its`: `norm` becomes `res`; a row of the tables.
  void status(R norm);
  /// True on the rank that prints, where "verb" asks for it.
  bool table() const { return options_.verb > 0 && solver_.rank == 0; }
  /// Results, end of the clock, last line.
  void finish(int& iter, R& relres);

 private:
  bool startsFromZero() const { return Vector::normL1(x_) == R(0); }
  R takeRightHandSide(Vector& r) const;
  void startWith(R norm);

  Solver& solver_;
  Preconditioner& P_;
  Operator& A_;
  const Vector& b_;
  Vector& x_;
  Options options_;
};

MIVO_EXTERN_SCALARS(KrylovRun, long, int)

}  // namespace mivo
