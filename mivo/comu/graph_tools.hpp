// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <set>
#include <vector>

#include "mivo/utils/export.hpp"

// Tools on a distributed graph whose rows are spread over the ranks. A rank holds its rows in three
// arrays: `rows`, the global ids of the rows; `ptr`, offsets as in compressed sparse rows, one more
// than there are rows; `cols`, global ids of the columns. When `rows` is empty on all ranks, the
// rows are numbered contiguously in rank order.

namespace mivo::comu {

/// Vertices that are attached to a vertex.
using Graph = std::map<int, std::set<int>>;

/// Distributed transpose. Collective. To graph[c] of each rank whose rows refer to column c are
/// added the ids of all rows, of all ranks, that refer to it. What `graph` holds before stays.
MIVO_API void transpose_matrix(int comm, const std::vector<int>& rows, const std::vector<int>& ptr,
                               const std::vector<int>& cols, Graph& graph);

/// Flattens a graph into row ids in ascending order, offsets and ascending columns.
MIVO_API void change_format(const Graph& graph, std::vector<int>& rowIds, std::vector<int>& ptr,
                            std::vector<int>& cols);

/// Flattens the rows of a graph that `rowIds` lists, in that order; an id that the graph lacks
/// gives an empty row.
MIVO_API void change_format2(const Graph& graph, const std::vector<int>& rowIds,
                             std::vector<int>& ptr, std::vector<int>& cols);

/// Does nothing; it stands for callers that still name it.
MIVO_API void merge_graph(const Graph& from, Graph& into);

}  // namespace mivo::comu
