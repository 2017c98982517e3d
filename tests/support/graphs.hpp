// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "tests/support/RandomCsr.hpp"

// Strength matrices for the tests of coarsening: 1 for strong entries, 0 for weak ones.
namespace mivo::test {

/// Each node strong to its neighbours in the list, with a weak diagonal entry in front.
inline HostCsr<int> strengthOf(const std::vector<std::vector<int>>& neighbours) {
  const int n = static_cast<int>(neighbours.size());
  return HostCsr<int>::build(n, n, [&](int i, HostCsr<int>& out) {
    out.push(i, 0);
    for (const int j : neighbours[static_cast<std::size_t>(i)]) out.push(j, 1);
  });
}

/// Nodes 0 - 1 - ... - n-1.
inline HostCsr<int> pathStrength(int n) {
  std::vector<std::vector<int>> neighbours(static_cast<std::size_t>(n));
  for (int i = 0; i + 1 < n; ++i) {
    neighbours[static_cast<std::size_t>(i)].push_back(i + 1);
    neighbours[static_cast<std::size_t>(i) + 1].push_back(i);
  }
  return strengthOf(neighbours);
}

/// Random edges, one in four of them weak, rows sorted, with or without diagonal entries and
/// symmetry.
inline HostCsr<int> randomStrength(std::mt19937& rng, int n, bool symmetric) {
  std::vector<std::set<std::pair<int, int>>> rows(static_cast<std::size_t>(n));
  const int edges = n > 0 ? static_cast<int>(rng() % static_cast<unsigned>(2 * n + 1)) : 0;
  for (int e = 0; e < edges; ++e) {
    const int i = static_cast<int>(rng() % static_cast<unsigned>(n));
    const int j = static_cast<int>(rng() % static_cast<unsigned>(n));
    const int strong = rng() % 4 != 0 ? 1 : 0;
    const auto add = [&](int row, int col) {
      auto& set = rows[static_cast<std::size_t>(row)];
      if (row == col || set.count({col, 0}) + set.count({col, 1}) > 0) return false;
      set.insert({col, strong});
      return true;
    };
    if (add(i, j) && symmetric) add(j, i);
  }
  const bool diagonal = rng() % 4 != 0;
  return HostCsr<int>::build(n, n, [&](int i, HostCsr<int>& out) {
    auto row = rows[static_cast<std::size_t>(i)];
    if (diagonal) row.insert({i, 0});
    for (const auto& [j, v] : row) out.push(j, v);
  });
}

/// Whether a row has a strong entry.
inline bool isCoupled(const HostCsr<int>& s, int i) {
  const auto row = s.row(i);
  return std::any_of(row.begin(), row.end(), [](const auto& entry) { return entry.second != 0; });
}

}  // namespace mivo::test
