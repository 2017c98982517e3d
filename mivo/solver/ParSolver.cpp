// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/ParSolver.hpp"

#include <algorithm>
#include <iomanip>
#include <ios>

#include "mivo/operators/ParOperatorIdentity.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
ParSolverT<T, G, L>::~ParSolverT() = default;

template <class T, class G, class L>
void ParSolverT<T, G, L>::solve(Operator& A, const Vector& b, Vector& x, int& iter, R& relres) {
  if (preconditioner != nullptr) {
    solve(*preconditioner, A, b, x, iter, relres);
  } else {
    ParOperatorIdentityT<T, G, L> identity;
    solve(identity, A, b, x, iter, relres);
  }
}

template <class T, class G, class L>
void ParSolverT<T, G, L>::create(const json& params, const std::string& solverName) {
  json pc = json::object();
  readJsonKey(params, "preconditioner", pc);
  if (!pc.is_object() || !pc.contains("preconditioner_type")) {
    pc["preconditioner_type"] = "PrecondIdentity";
  }
  preconditioner = Preconditioner::getFactory().createInstance(pc, this);
  this->appendChild(preconditioner, "preconditioner");
  readJsonKey(params, "verbose", verbose);
  readJsonKey(params, "rtol", rtol);
  readJsonKey(params, "max_its", max_its);
  name = solverName;
}

template <class T, class G, class L>
void ParSolverT<T, G, L>::takeRanks(const Operator& A) {
  commSize = sizeOf(A.getComm());
  rank = rankOf(A.getComm());
}

// The sources and lines of these messages are part of the output format.

template <class T, class G, class L>
void ParSolverT<T, G, L>::beginSolve(Preconditioner&, Operator& A, const Vector&, Vector&,
                                     const int&, const R&) {
  MIVO_LOG_AT(3, verbose > 0 && rank == 0, "ParOperator", 83)
      << "Begin solving equation: size " << A.getRows() << " solver " << name << " device "
      << A.getDevice().getString();
  // The stream stays in scientific format: the times of the last line are printed in it too.
  MIVO_LOG_AT(3, verbose > 1 && rank == 0, "ParOperator", 86)
      << std::scientific << std::setprecision(6) << std::setw(8) << "iter" << std::setw(14) << "|r|"
      << std::setw(14) << "|r|/|r0|" << std::setw(14) << "|r|/|b|" << std::setw(14) << "conv_rate";
  solveTime.start();
}

template <class T, class G, class L>
void ParSolverT<T, G, L>::logSolverStatus(Preconditioner&, int iter, R r, R relR0, R relB) {
  MIVO_LOG_AT(3, verbose > 1 && rank == 0, "ParOperator", 100)
      << std::scientific << std::setprecision(6) << std::setw(8) << iter << std::setw(14) << r
      << std::setw(14) << relR0 << std::setw(14) << relB << std::setw(14) << relB / lastResB;
  lastResB = relB;
  if (observer) observer(iter, r, relR0, relB);
}

template <class T, class G, class L>
void ParSolverT<T, G, L>::finishSolve(Preconditioner& P, int maxIts, int iter, R relres) {
  solveTime.stop();
  MIVO_LOG_AT(3, verbose > 0 && rank == 0, "ParOperator", 113)
      << "Finish solving using " << name << ", iter/max_its " << iter << "/" << maxIts << ", res_b "
      << relres << ", solve_time " << solveTime.getTimeSec() << ", precond_setup "
      << P.setupTime.getTimeSec() << ", precond " << P.precondTime.getTimeSec();
}

template <class T, class G, class L>
std::size_t ParSolverT<T, G, L>::getBytes() const {
  const auto& own = this->children;
  const std::shared_ptr<ParOperator> assigned = preconditioner;
  const bool counted =
      assigned == nullptr || std::find(own.begin(), own.end(), assigned) != own.end();
  return ParOperator::getBytes() + (counted ? 0 : assigned->getBytes());
}

template <class T, class G, class L>
Factory<ParSolverT<T, G, L>>& ParSolverT<T, G, L>::getFactory() {
  static Factory<ParSolverT> factory("solver_type");
  return factory;
}

MIVO_INSTANCE_SCALARS(ParSolverT, long, int)

}  // namespace mivo
