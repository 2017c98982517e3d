// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "mivo/utils/export.hpp"

namespace mivo::comu {

/// For a graph with symmetric pattern, in the three arrays of `graph_tools.hpp`: the ghosts of this
/// rank's rows and what this rank has to send. Collective.
///
/// A row belongs to the lowest rank that lists it or, without lists, to the rank whose interval
/// holds it. On return ghostIds are the columns that belong to other ranks, ascending and each
/// once, and ghostRanks their owners, -1 for a column that no rank holds. recvRows are the rows
/// that other ranks have as ghosts, by ascending rank and ascending within it, and sendRanks the
/// rank that wants each of them.
MIVO_API void get_sym_ghost_info(int comm, const std::vector<int>& rows,
                                 const std::vector<int>& ptr, const std::vector<int>& cols,
                                 std::vector<int>& recvRows, std::vector<int>& sendRanks,
                                 std::vector<int>& ghostIds, std::vector<int>& ghostRanks);

/// The same for any graph: works on the graph joined with its transpose.
MIVO_API void get_unsym_ghost_info(int comm, const std::vector<int>& rows,
                                   const std::vector<int>& ptr, const std::vector<int>& cols,
                                   std::vector<int>& recvRows, std::vector<int>& sendRanks,
                                   std::vector<int>& ghostIds, std::vector<int>& ghostRanks);

}  // namespace mivo::comu
