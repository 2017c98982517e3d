// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "configuration.hpp"
#include "hierarchy.hpp"
#include "ranks.hpp"

namespace mivo_solve {

/// Outcome of a run. Norms are 2-norms; r0 belongs to the start vector.
struct Report {
  static constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

  std::string testcase;
  std::string solver;
  std::string device;
  int ranks = 1;
  Extent rowsPerRank;
  Extent entriesPerRank;
  json matrix;            ///< statistics of A
  std::string operators;  ///< the operator tree
  std::vector<std::string> notes;
  std::vector<Hierarchy> hierarchies;
  bool profile = false;           ///< tell what was measured in the hierarchies
  double setupTime = 0;           ///< seconds, of the slowest rank
  double solveTime = 0;           ///< seconds, of the slowest rank
  int iterations = -1;            ///< -1 where the solver reports none
  double reportedRelres = kNone;  ///< |r|/|b| by the solver, NaN where it reports none
  double rtol = 0;
  double normB = 0;
  double normR0 = 0;
  double normR = kNone;  ///< of b - A x, recomputed
  bool finiteX = true;

  /// 2 rtol max(|b|, |r0|)
  double bound() const;
  bool converged() const;
  /// Exit status: 0 or 2.
  int status() const { return converged() ? 0 : 2; }
  double trueRelres() const;
};

/// The number of ranks, and the least and most rows and entries of one.
std::string rankLine(const Report& report);

/// Times, iterations and residuals, one a line.
void printReport(const Report& report, std::ostream& out);

/// All of it for machines.
json toJson(const Report& report);

}  // namespace mivo_solve
