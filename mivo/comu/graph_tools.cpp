// SPDX-License-Identifier: Apache-2.0
#include "mivo/comu/graph_tools.hpp"

#include <cstddef>
#include <utility>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/comu/row_numbering.hpp"
#include "mivo/comu/serialization.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo::comu {

void transpose_matrix(int comm, const std::vector<int>& rows, const std::vector<int>& ptr,
                      const std::vector<int>& cols, Graph& graph) {
  const int rank = rankOf(comm), nprocs = sizeOf(comm);
  const detail::RowNumbering numbering(comm, rows, ptr);

  Graph local;
  for (std::size_t r = 0; r < numbering.ids.size(); ++r) {
    for (int k = ptr[r]; k < ptr[r + 1]; ++k) {
      local[cols[static_cast<std::size_t>(k)]].insert(numbering.ids[r]);
    }
  }

  // Each column has a directory rank, which joins what the ranks know of it.
  using Records = std::vector<std::vector<TRDATA>>;
  Records contributions(static_cast<std::size_t>(nprocs));
  for (auto& column : local) {
    MIVO_CHECK(column.first >= 0) << "transpose_matrix: column " << column.first;
    contributions[static_cast<std::size_t>(column.first % nprocs)].push_back(
        {column.first, rank, std::move(column.second)});
  }
  Records received;
  sparse_send_recv_stream(comm, contributions, received);

  Graph merged;
  for (const auto& records : received) {
    for (const TRDATA& record : records) {
      merged[record.id].insert(record.neighbours.begin(), record.neighbours.end());
    }
  }
  Records replies(static_cast<std::size_t>(nprocs));
  for (const auto& records : received) {
    for (const TRDATA& record : records) {
      replies[static_cast<std::size_t>(record.rank)].push_back(
          {record.id, rank, merged[record.id]});
    }
  }
  Records answers;
  sparse_send_recv_stream(comm, replies, answers);
  for (const auto& records : answers) {
    for (const TRDATA& record : records) {
      graph[record.id].insert(record.neighbours.begin(), record.neighbours.end());
    }
  }
}

void change_format(const Graph& graph, std::vector<int>& rowIds, std::vector<int>& ptr,
                   std::vector<int>& cols) {
  rowIds.clear();
  for (const auto& row : graph) rowIds.push_back(row.first);
  change_format2(graph, rowIds, ptr, cols);
}

void change_format2(const Graph& graph, const std::vector<int>& rowIds, std::vector<int>& ptr,
                    std::vector<int>& cols) {
  ptr.assign(1, 0);
  cols.clear();
  for (const int id : rowIds) {
    const auto row = graph.find(id);
    if (row != graph.end()) cols.insert(cols.end(), row->second.begin(), row->second.end());
    ptr.push_back(narrowToInt(cols.size(), "graph entries"));
  }
}

void merge_graph(const Graph&, Graph&) {}

}  // namespace mivo::comu
