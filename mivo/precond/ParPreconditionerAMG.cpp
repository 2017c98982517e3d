// SPDX-License-Identifier: Apache-2.0

// Configuration, set-up and statistics; the cycle is in ParPreconditionerAMGCycle.cpp.

#include "mivo/precond/ParPreconditionerAMG.hpp"

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <iomanip>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {
namespace {

/// Gives memory that was freed back to the system, where the C library keeps it: it does so with
/// blocks of up to 32 MB, which the set-up of a large level leaves behind in numbers.
void trimHostMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace

template <class T, class G, class L>
ParPreconditionerAMG_T<T, G, L>::~ParPreconditionerAMG_T() = default;

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::create(const json& params) {
  Solver::create(params, "AMG");
  readJsonKey(params, "max_levels", max_levels);
  readJsonKey(params, "min_coarse_size", min_coarse_size);
  readJsonKey(params, "verbose", verbose);
  parameters = params;
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::setup(const Operator& A) {
  this->setupTime.start();
  const auto* csr = dynamic_cast<const Matrix*>(&A);
  MIVO_CHECK(csr != nullptr) << "AMG: setup should be given a ParCSRMatrix";
  const Matrix given = *csr;  // which may stand in a level
  discardLevels();
  fine = given;
  has_matrix = true;
  this->takeRanks(fine);

  for (int l = 0; l < max_levels; ++l) {
    if (!buildLevel(l)) break;
  }

  for (Level& level : levels) {
    timed(level, &SetupTimes::prepare, [&] {
      level.A.prepareMatVec(false);
      level.R.prepareMatVec(false);
      level.P.prepareMatVec(false);
    });
  }

  if (verbose >= 2) logStatistics();
  step = 0;
  this->setupTime.stop();
  // The label "preprare" is part of the output format.
  MIVO_LOG(3, verbose >= 2 && this->rank == 0)
      << "AMG setup timers: transfer " << setup_times.transfer.getTimeSec() << " smoother "
      << setup_times.smoother.getTimeSec() << " rap " << setup_times.rap.getTimeSec()
      << " preprare " << setup_times.prepare.getTimeSec() << " total "
      << this->setupTime.getTimeSec();
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::discardLevels() {
  if (levels.empty()) return;
  levels.clear();
  this->children.remove_if(
      [](const auto& child) { return child->role.compare(0, 6, "level_") == 0; });
  fine = Matrix();
  setup_times = SetupTimes();
  trimHostMemory();
}

template <class T, class G, class L>
std::size_t ParPreconditionerAMG_T<T, G, L>::getBytes() const {
  std::size_t bytes =
      Solver::getBytes() + scratch.getBytes();  // smoothers and solvers are children
  for (std::size_t l = 0; l < levels.size(); ++l) {
    const Level& level = levels[l];
    bytes += (l > 0 ? level.A.getBytes() : 0) + level.P.getBytes() + level.R.getBytes();
    for (const Vector* v :
         {&level.coarse_solution, &level.residual, &level.correction, &level.coarse_rhs}) {
      bytes += v->getBytes();
    }
  }
  return bytes;
}

template <class T, class G, class L>
template <class Body>
void ParPreconditionerAMG_T<T, G, L>::timed(Level& level, TickMeter SetupTimes::*phase,
                                            const Body& body) {
  (setup_times.*phase).start();
  (level.setup_times.*phase).start();
  body();
  (level.setup_times.*phase).stop();
  (setup_times.*phase).stop();
}

template <class T, class G, class L>
bool ParPreconditionerAMG_T<T, G, L>::buildLevel(int l) {
  Level level;
  if (l > 0) {
    timed(level, &SetupTimes::rap, [&] { level.A = coarseOperator(levels.back()); });
  } else {
    level.A = fine;
  }
  trimHostMemory();
  const auto node = std::make_shared<ParOperator>();
  const auto append = [&] {
    levels.push_back(level);
    this->appendChild(node, string_printf("level_%d", l));
  };
  const auto appendCoarsest = [&] {
    timed(level, &SetupTimes::coarse, [&] { createCoarsestLevel(level, node, parameters); });
    append();
  };
  if (min_coarse_size >= level.A.getCols() || l == max_levels - 1) {
    appendCoarsest();
    return false;
  }

  timed(level, &SetupTimes::transfer, [&] {
    const json& transfer = getJsonByKey(parameters, "level_transfer", l);
    level.level_transfer = Transfer::getFactory().createInstance(transfer, this);
    MIVO_CHECK(level.level_transfer != nullptr)
        << unknownPartText("AMG", "level_transfer", "level_transfer_type", transfer);
    level.level_transfer->setLevelId(l);
    level.level_transfer->transfer_operators(level.A, level.P, level.R);
  });
  if (l > 0 && level.P.getRows() == 0) {
    appendCoarsest();
    return false;
  }

  timed(level, &SetupTimes::smoother, [&] {
    const auto smoother = [&](const char* key) {
      return createSmoother(getJsonByKey(parameters, key, l), key, level.A);
    };
    level.pre_smoother = smoother("pre_smoother");
    level.post_smoother = smoother("post_smoother");
  });

  node->appendChild(level.pre_smoother, "pre_smoother");
  node->appendChild(level.post_smoother, "post_smoother");
  node->appendChild(level.level_transfer, "level_transfer");
  append();
  return true;
}

template <class T, class G, class L>
typename ParPreconditionerAMG_T<T, G, L>::Matrix ParPreconditionerAMG_T<T, G, L>::coarseOperator(
    const Level& level) {
  Matrix product;
  if (level.P.getCols() == 0) {
    // Without coarse unknowns R may be a default-built matrix, on a communicator and a device that
    // are not those of A.
    const auto& none = level.P.getColPartitioner();
    product.create(none, none, {}, level.A.getDevice(), level.A.getComm());
  } else {
    Matrix::multiplyTriple(level.R, level.A, level.P, product);
    product.sortRows();
  }
  return product;
}

template <class T, class G, class L>
std::shared_ptr<ParSmootherT<T, G, L>> ParPreconditionerAMG_T<T, G, L>::createSmoother(
    const json& params, const char* key, const Matrix& A) {
  const auto smoother = Smoother::getFactory().createInstance(params, this);
  MIVO_CHECK(smoother != nullptr) << unknownPartText("AMG", key, "smoother_type", params);
  smoother->setup(A);
  return smoother;
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::createCoarsestLevel(Level& level,
                                                          std::shared_ptr<ParOperator> levelNode,
                                                          const json& params) {
  json chosen;
  if (readJsonKey(params, "coarse_solver", chosen)) {
    level.coarse_solver = Solver::getFactory().createInstance(chosen, this);
    MIVO_CHECK(level.coarse_solver != nullptr)
        << unknownPartText("AMG", "coarse_solver", "solver_type", chosen);
    if (level.coarse_solver->preconditioner != nullptr) {
      level.coarse_solver->preconditioner->setup(level.A);
    }
    level.coarse_solver->setup(level.A);
    levelNode->appendChild(level.coarse_solver, "coarse_solver");
    return;
  }
  const auto plain = [&](const char* key) {
    json value;
    readJsonKey(params, key, value);
    return createSmoother(value, key, level.A);
  };
  level.coarse_pre_smoother = plain("pre_smoother");
  level.coarse_post_smoother = plain("post_smoother");
  const auto node = std::make_shared<ParOperator>();
  node->appendChild(level.coarse_pre_smoother, "coarse_pre_smoother");
  node->appendChild(level.coarse_post_smoother, "coarse_post_smoother");
  levelNode->appendChild(node, "coarse_solver");
}

template <class T, class G, class L>
void ParPreconditionerAMG_T<T, G, L>::logStatistics() {
  const bool print = this->rank == 0;
  double entries = 0, finest = 0, rows = 0;
  for (std::size_t l = 0; l < levels.size(); ++l) {
    const auto meta = levels[l].A.computeMeta();
    if (l == 0) {
      MIVO_LOG(3, print) << std::setw(50) << "" << std::setw(18) << "row_entries" << std::setw(33)
                         << "row_sums";
      MIVO_LOG(3, print) << std::setw(8) << "level" << meta.getTableHead();
      finest = static_cast<double>(meta.nnzs);
      rows = static_cast<double>(meta.rows);
    }
    MIVO_LOG(3, print) << std::setw(8) << l << meta.getString();
    entries += static_cast<double>(meta.nnzs);
  }
  MIVO_LOG(3, print) << "AMG DOF size " << rows << " operator complexity is "
                     << (finest > 0 ? entries / finest : 1.0);
}

MIVO_INSTANCE_SCALARS(ParPreconditionerAMG_T, long, int)
MIVO_REGISTER_SCALARS(ParPreconditionerT, "PrecondAMG", ParPreconditionerAMG_T)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverAMG", ParPreconditionerAMG_T)

}  // namespace mivo
