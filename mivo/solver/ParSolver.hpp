// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "mivo/operators/ParMatrixFree.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/operators/ParPreconditioner.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/TickMeter.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Interface and common state of all iterative solvers of A x = b.
///
/// A concrete solver reads its own keys in a `create(const json&)`, implements `setup` and the
/// six-argument `solve`, and brackets its work with `beginSolve`, `logSolverStatus` and
/// `finishSolve`, which `KrylovRun` calls for most of them. Solvers do not set up their
/// preconditioner: call `preconditioner->setup(A)` and `solver->setup(A)`, then `solve`.
///
/// Keys of the frame: "preconditioner" (object, default the identity), "verbose" (int, 0), "rtol"
/// (number, 1e-8), "max_its" (int, 2000). Norms are 2-norms of residuals. Texts go to standard
/// output, on rank 0 only. Exists for the four scalar types with (long, int). Setting up and
/// solving are collective.
template <class T, class G, class L>
class MIVO_API ParSolverT : public virtual ParOperator {
 public:
  using R = RealType<T>;
  using Preconditioner = ParPreconditionerT<T, G, L>;
  using Operator = ParMatrixFreeT<T, G, L>;
  using Vector = ParMatrixT<T, G, L>;

  std::shared_ptr<Preconditioner>
      preconditioner;  ///< made by `create`; null counts as the identity
  std::int32_t commSize =
      0;                  ///< ranks of the operator's communicator, taken at the start of a solve
  std::int32_t rank = 0;  ///< this process's number there
  std::string name;       ///< short name for messages, such as "PCG"
  std::int32_t verbose = 0;  ///< 1: first and last line, 2: one line an iteration
  R rtol = R(1e-8);          ///< tolerance on the residual relative to its start
  std::int32_t max_its = 2000;
  R lastResB = R(1);    ///< previous |r|/|b|, kept from solve to solve
  TickMeter solveTime;  ///< summed over all solves
  /// Called on every rank with the iteration number, |r|, |r|/|r0| and |r|/|b|, whenever a status
  /// is logged.
  std::function<void(int iter, R r, R relR0, R relB)> observer;

  /// Prepares for A.
  virtual void setup(const Operator& A) = 0;
  /// Improves x until |b - A x| is small enough or the iterations are used up. `iter` and `relres`
  /// receive the number of iterations and the last |r|/|b|.
  virtual void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
                     R& relres) = 0;
  /// The same with this object's own preconditioner.
  virtual void solve(Operator& A, const Vector& b, Vector& x, int& iter, R& relres);

  /// Reads the keys of the frame and makes the preconditioner as the child "preconditioner".
  void create(const json& params, const std::string& solverName);
  /// Fills `commSize` and `rank` from the communicator of A.
  void takeRanks(const Operator& A);
  /// First line, head of the table, start of the clock.
  void beginSolve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, const int& iter,
                  const R& relres);
  /// One row of the table; tells the observer; remembers `relB`.
  void logSolverStatus(Preconditioner& P, int iter, R r, R relR0, R relB);
  /// End of the clock, last line. `maxIts` is the iteration limit.
  void finishSolve(Preconditioner& P, int maxIts, int iter, R relres);

  ~ParSolverT() override;
  /// Counts a preconditioner that is no child too.
  std::size_t getBytes() const override;

  /// Family of the key "solver_type".
  static Factory<ParSolverT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParSolverT, long, int)

}  // namespace mivo
