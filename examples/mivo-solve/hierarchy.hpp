// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <vector>

#include "configuration.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/precond/HierarchyStatistics.hpp"

namespace mivo_solve {

using Hierarchy = mivo::HierarchyStatistics;

/// With `profile` also what was measured.
json toJson(const Hierarchy& hierarchy, bool profile);

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
