// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParLevelTransfer.hpp"
#include "mivo/operators/ParPreconditioner.hpp"
#include "mivo/operators/ParSmoother.hpp"
#include "mivo/precond/HierarchyStatistics.hpp"
#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/TickMeter.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

/// Algebraic multigrid: a hierarchy of Galerkin operators R A P and a V-cycle over it (Brandt,
/// McCormick and Ruge 1984; Trottenberg, Oosterlee and Schueller, Multigrid, 2001, appendix A).
/// What coarsens and what smooths is named in JSON, as a whole and for single levels.
///
/// "PrecondAMG" applies one cycle from zero. "SolverAMG" repeats cycles on the given x until
/// |b - A x| < 1e-8 |b|, at most 5000 of them; the keys "rtol" and "max_its" do not change that. It
/// reports the number of the last cycle counted from 0, and 5000 without convergence. `setup` takes
/// a `ParCSRMatrixT`, which is shared; a fatal check refuses anything else. A further `setup`, for
/// a matrix that has changed, gives the memory of the hierarchy back and builds a new one, children
/// included.
/// As a preconditioner of conjugate gradients the cycle has to be symmetric: R = P^T, and a
/// post-smoother that is the adjoint of the pre-smoother.
///
/// Keys: those of the solver frame, whose preconditioner no cycle applies; "max_levels" (int, 20);
/// "min_coarse_size" (int, 10), columns down to which a level is the coarsest; "verbose" (int, 0),
/// above 1 statistics after the set-up, above 2 error factors after a solve, above 3 a trace of
/// each cycle; "level_transfer", "pre_smoother" and "post_smoother" (objects), each of them also as
/// "pre_smoother_2" and the like for one level; "coarse_solver" (object), without which the
/// coarsest level takes the plain smoothers. These are created by `setup`, with this object as
/// parent, so that callbacks registered here reach them by their tags.
///
/// A cycle visits each level once: a pre- and a post-smoothing, a residual, a product with R and
/// one with P. It allocates nothing after the first, coarse solvers apart. Everything is collective
/// except for `create`; one thread per object.
template <class T, class G, class L>
class MIVO_API ParPreconditionerAMG_T : public ParPreconditionerT<T, G, L>,
                                        public ParSolverT<T, G, L> {
 public:
  using R = RealType<T>;
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Operator = ParMatrixFreeT<T, G, L>;
  using Preconditioner = ParPreconditionerT<T, G, L>;
  using Smoother = ParSmootherT<T, G, L>;
  using Solver = ParSolverT<T, G, L>;
  using Transfer = ParLevelTransferT<T, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using Solver::create;
  using Solver::solve;

  /// Times of `setup` by what it does.
  struct MIVO_API SetupTimes {
    TickMeter transfer;  ///< level transfers
    TickMeter smoother;  ///< smoothers of all levels but the coarsest
    TickMeter rap;       ///< products R A P
    TickMeter prepare;   ///< halo exchange plans
    TickMeter coarse;    ///< solver or smoothers of the coarsest level
  };

  /// One level. Copies share the matrices, vectors and objects.
  struct MIVO_API Level {
    Matrix A;  ///< operator; that of level 0 is the caller's
    Matrix P;  ///< prolongation from the next coarser level; empty on the coarsest, as R
    Matrix R;  ///< restriction to it
    Vector coarse_solution;                  ///< iterate of the next level
    Vector residual;                         ///< b - A x after pre-smoothing
    Vector correction;                       ///< P times `coarse_solution`
    Vector coarse_rhs;                       ///< R times `residual`
    Vector work[3];                          ///< not used
    std::shared_ptr<Smoother> pre_smoother;  ///< null on the coarsest level, as the next
    std::shared_ptr<Smoother> post_smoother;
    std::shared_ptr<Smoother> coarse_pre_smoother;  ///< on a coarsest level without solver
    std::shared_ptr<Smoother> coarse_post_smoother;
    std::shared_ptr<Solver> coarse_solver;  ///< on the coarsest level, null where none is named
    std::shared_ptr<ParOperator> spare[2];  ///< not used
    std::shared_ptr<Transfer> level_transfer;
    /// Products of |r| after by |r| before pre-smoothing, coarse correction and post-smoothing,
    /// over all cycles with `verbose` above 2.
    double accumulated[3] = {1, 1, 1};
    TickMeter cycle_time;    ///< time of this level alone, over all cycles with `profile`
    SetupTimes setup_times;  ///< of this level in the last set-up
  };

  std::vector<Level> levels;  ///< finest first
  std::int32_t max_levels = 20;
  std::int32_t min_coarse_size = 10;
  std::int32_t verbose = 0;  ///< beside that of the solver frame; one key sets both
  double cycle_tolerance = 1e-8;
  std::int32_t cycle_limit = 5000;
  std::int32_t step = 0;   ///< cycles since the end of `setup`
  Matrix fine;             ///< the matrix given to `setup`
  json parameters;         ///< the object given to `create`
  SetupTimes setup_times;  ///< of the last set-up
  bool profile = false;    ///< measure `Level::cycle_time`

  ~ParPreconditionerAMG_T() override;

  void create(const json& params);
  void setup(const Operator& A) override;
  /// One cycle from zero. x of size 0 is created in the row partition of the matrix.
  void precondition(const Vector& b, Vector& x) override;
  /// `P` and `A` serve the messages only: the matrix is that of `setup`.
  void solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x, int& iter,
             R& relres) override;
  /// One cycle on the given x. x of size 0 is created, in the row partition of the matrix, and
  /// counts as zero. b has one column.
  void amg_step(const Vector& b, Vector& x);
  /// The part of a cycle from `level` downward, on the given x, which stays as it is without such
  /// a level.
  void vcycle_recursive(int level, const Vector& b, Vector& x);
  /// Sizes, names and times of the hierarchy, the same on all ranks; no levels before `setup`.
  /// Collective.
  HierarchyStatistics getStatistics() const;
  /// Bytes that this rank holds for the hierarchy, the matrix given to `setup` left out.
  std::size_t getBytes() const override;
  /// Gives a level, whose A is there, the means of the coarsest one: "coarse_solver" of `params`,
  /// with its preconditioner set up, or else the plain smoothers.
  void createCoarsestLevel(Level& level, std::shared_ptr<ParOperator> levelNode,
                           const json& params);

 private:
  /// Back to the state before a set-up, but for the times that every preconditioner sums up.
  void discardLevels();
  /// Runs a phase of the set-up of a level, on the clocks of both.
  template <class Body>
  void timed(Level& level, TickMeter SetupTimes::*phase, const Body& body);
  /// Appends level l; false when it is the coarsest.
  bool buildLevel(int l);
  /// R A P, with sorted rows.
  Matrix coarseOperator(const Level& level);
  std::shared_ptr<Smoother> createSmoother(const json& params, const char* key, const Matrix& A);
  void logStatistics();
  /// False when x is there.
  bool createIfEmpty(const Vector& b, Vector& x) const;
  /// The cycle from level l downward. With `fromZero` x counts as zero, whatever it holds.
  void cycle(int l, const Vector& b, Vector& x, bool fromZero);
  static void smoothOnce(Smoother& smoother, const Vector& b, Vector& x, bool fromZero);
  void coarsestStep(int l, const Vector& b, Vector& x, bool fromZero);
  /// x = x + P (approximate A_c^-1) R (b - A x), with the residual already there.
  void correctFromBelow(int l, Vector& x);
  /// Prefix of a line of the trace.
  std::string tracePrefix(int l) const;
  void traceChange(int l, const char* what, R before, R after, const char* end = "") const;

  Vector scratch;  ///< residuals of `solve`
  bool has_matrix = false;
};

MIVO_EXTERN_SCALARS(ParPreconditionerAMG_T, long, int)

}  // namespace mivo
