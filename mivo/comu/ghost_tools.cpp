// SPDX-License-Identifier: Apache-2.0
#include "mivo/comu/ghost_tools.hpp"

#include <algorithm>
#include <cstddef>
#include <set>
#include <unordered_map>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/comu/graph_tools.hpp"
#include "mivo/comu/owner_tools.hpp"
#include "mivo/comu/row_numbering.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo::comu {
namespace {

/// Owners of any ids, where rows are listed: each rank first reports its rows to their directory
/// ranks, then asks for the ids that interest it. The owner search alone would take each question
/// for a claim.
std::vector<int> findOwners(int comm, const std::vector<int>& rows, const std::vector<int>& ids) {
  const int nprocs = sizeOf(comm);
  const auto directory = [nprocs](const int& id) { return id % nprocs; };
  std::unordered_map<int, int> ownerOf;
  const auto claim = [&](int, int, const auto& requests, auto&) {
    for (std::size_t source = 0; source < requests.size(); ++source) {
      for (const int id : requests[source]) ownerOf.emplace(id, static_cast<int>(source));
    }
  };
  map_reduce<int, int>(comm, rows.size(), rows.data(), directory, claim, nullptr);

  const auto look = [&](int, int, const auto& requests, auto& replies) {
    for (std::size_t source = 0; source < requests.size(); ++source) {
      for (std::size_t k = 0; k < requests[source].size(); ++k) {
        const auto owner = ownerOf.find(requests[source][k]);
        replies[source][k] = owner == ownerOf.end() ? -1 : owner->second;
      }
    }
  };
  std::vector<int> owners(ids.size() + 1);  // never null, also without ids
  map_reduce<int, int>(comm, ids.size(), ids.data(), directory, look, owners.data());
  owners.pop_back();
  return owners;
}

}  // namespace

void get_sym_ghost_info(int comm, const std::vector<int>& rows, const std::vector<int>& ptr,
                        const std::vector<int>& cols, std::vector<int>& recvRows,
                        std::vector<int>& sendRanks, std::vector<int>& ghostIds,
                        std::vector<int>& ghostRanks) {
  const int rank = rankOf(comm), nprocs = sizeOf(comm);
  const detail::RowNumbering numbering(comm, rows, ptr);

  std::vector<int> columns(cols);
  std::sort(columns.begin(), columns.end());
  columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
  std::vector<int> owners;
  if (numbering.listed) {
    owners = findOwners(comm, rows, columns);
  } else {
    for (const int column : columns) owners.push_back(numbering.ownerOf(column));
  }

  ghostIds.clear();
  ghostRanks.clear();
  std::vector<std::vector<int>> wanted(static_cast<std::size_t>(nprocs));
  for (std::size_t k = 0; k < columns.size(); ++k) {
    if (owners[k] == rank) continue;
    ghostIds.push_back(columns[k]);
    ghostRanks.push_back(owners[k]);
    if (owners[k] >= 0) wanted[static_cast<std::size_t>(owners[k])].push_back(columns[k]);
  }
  std::vector<std::vector<int>> asked;
  sparse_send_recv<int>(comm, wanted, asked, false);

  recvRows.clear();
  sendRanks.clear();
  for (std::size_t source = 0; source < asked.size(); ++source) {
    recvRows.insert(recvRows.end(), asked[source].begin(), asked[source].end());
    sendRanks.insert(sendRanks.end(), asked[source].size(), static_cast<int>(source));
  }
}

void get_unsym_ghost_info(int comm, const std::vector<int>& rows, const std::vector<int>& ptr,
                          const std::vector<int>& cols, std::vector<int>& recvRows,
                          std::vector<int>& sendRanks, std::vector<int>& ghostIds,
                          std::vector<int>& ghostRanks) {
  // A rank learns of a column's references only if it has one itself, so each row refers to itself
  // here. That makes no ghost, unless a lower rank lists the row too.
  const detail::RowNumbering numbering(comm, rows, ptr);
  Graph graph;
  for (std::size_t r = 0; r < numbering.ids.size(); ++r) {
    std::set<int>& row = graph[numbering.ids[r]];
    row.insert(numbering.ids[r]);
    for (int k = ptr[r]; k < ptr[r + 1]; ++k) row.insert(cols[static_cast<std::size_t>(k)]);
  }
  std::vector<int> symPtr;
  std::vector<int> symCols;
  change_format2(graph, numbering.ids, symPtr, symCols);
  transpose_matrix(comm, rows, symPtr, symCols, graph);
  change_format2(graph, numbering.ids, symPtr, symCols);
  get_sym_ghost_info(comm, rows, symPtr, symCols, recvRows, sendRanks, ghostIds, ghostRanks);
}

}  // namespace mivo::comu
