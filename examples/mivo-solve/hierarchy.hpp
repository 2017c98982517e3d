// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "configuration.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "ranks.hpp"

namespace mivo_solve {

/// What there is to tell about a multigrid hierarchy.
struct Hierarchy {
  struct Level {
    long rows = 0;
    long entries = 0;
    long prolongation = 0;  ///< entries of P, 0 on the coarsest level
    std::string smoother;
    Extent rowsPerRank;
    double cycleTime = 0;  ///< seconds of this level alone in all cycles, of the slowest rank
  };
  struct Phase {
    std::string name;
    double seconds = 0;  ///< of the slowest rank
  };

  std::vector<Level> levels;
  std::vector<Phase> phases;  ///< of the set-up
  double setupTime = 0;
  double bytes = 0;  ///< of the matrices A, P and R below the given one, on all ranks
  int cycles = 0;

  /// Entries of all A by those of the finest one, and the same of rows.
  double operatorComplexity() const;
  double gridComplexity() const;
  /// With `profile` also what was measured.
  json toJson(bool profile) const;
};

/// The hierarchies in an operator tree that have been set up, in its order. Collective.
template <class T>
std::vector<Hierarchy> hierarchiesOf(const mivo::ParOperator& root);

/// Asks the hierarchies in a tree to measure their cycles.
template <class T>
void profileHierarchies(mivo::ParOperator& root);

/// A table of the levels, and the complexities.
void printHierarchy(const Hierarchy& hierarchy, std::ostream& out);
/// The phases of the set-up and the share of each level in the cycles.
void printProfile(const Hierarchy& hierarchy, std::ostream& out);

}  // namespace mivo_solve
