// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/parsparse.hpp"
#include "tests/support/world.hpp"

// For tests on several ranks: global data is made alike on all ranks, from the same seed, and each
// rank compares its part.
namespace mivo::test {

/// The host, and this rank's own CUDA device where there is one; the same number on all ranks.
inline std::vector<Device> rankDevices() {
  Device::initialize();
  const std::vector<Device> all = Device::getAllDevices();
  std::vector<Device> out{Device()};
  if (all.size() > 1) {
    out.push_back(all[1 + static_cast<std::size_t>(worldRank()) % (all.size() - 1)]);
  }
  return out;
}

/// Ways to cut n indices over the ranks: even, all on the last, none on the first where there are
/// several, and at random places.
template <class G>
std::vector<PartitionerT<G, int>> worldCuts(G n, std::mt19937& rng) {
  const std::size_t size = static_cast<std::size_t>(worldSize());
  PartitionerT<G, int> even;
  even.create(n, worldSize());
  std::vector<std::vector<G>> offsets(3, std::vector<G>(size + 1, G(0)));
  offsets[0][size] = n;
  for (std::size_t r = 0; r <= size; ++r) {
    if (size > 1 && r > 0) offsets[1][r] = n * static_cast<G>(r - 1) / static_cast<G>(size - 1);
    offsets[2][r] = n > 0 ? static_cast<G>(rng() % static_cast<unsigned>(n + 1)) : G(0);
  }
  offsets[1][size] = n;
  std::sort(offsets[2].begin(), offsets[2].end());
  offsets[2][0] = 0;
  offsets[2][size] = n;
  std::vector<PartitionerT<G, int>> out{even};
  for (const auto& o : offsets) out.push_back(partsAt<G>(o));
  return out;
}

/// Calls work(device, {cut of n0, cut of n1, ...}) for cuts of each kind beside each other.
template <class G = long, class Work>
void forCuts(const std::vector<G>& sizes, std::mt19937& rng, const Work& work) {
  std::vector<std::vector<PartitionerT<G, int>>> cuts;
  for (const G n : sizes) cuts.push_back(worldCuts<G>(n, rng));
  for (std::size_t k = 0; k < (sizes.size() > 1 ? 5 : 4); ++k) {
    std::vector<PartitionerT<G, int>> chosen;
    for (std::size_t s = 0; s < sizes.size(); ++s) chosen.push_back(cuts[s][(k + k / 4 * s) % 4]);
    for (const Device& device : rankDevices()) {
      SCOPED_TRACE(device.getString() + ", cut " + std::to_string(k));
      work(device, chosen);
    }
  }
}

template <class Work>
void forEachCut(long n, std::mt19937& rng, const Work& work) {
  forCuts({n}, rng, [&](const Device& device, const auto& parts) { work(parts[0], device); });
}

/// First index of a part, by default this rank's own, and the one behind its last.
template <class G>
std::pair<G, G> rangeOf(const PartitionerT<G, int>& part, int p = worldRank()) {
  std::pair<G, G> out;
  part.getOwnerShipRangeForPart(p, &out.first, &out.second);
  return out;
}

/// This rank's part of a global array with so many columns.
template <class T, class G>
std::vector<T> ownPart(const PartitionerT<G, int>& part, const std::vector<T>& all, int cols = 1) {
  const auto own = rangeOf(part);
  return std::vector<T>(all.begin() + own.first * cols, all.begin() + own.second * cols);
}

template <class T, class G>
ParMatrixT<T, G, int> ownColumn(const Device& device, const PartitionerT<G, int>& part,
                                const std::vector<T>& all) {
  return columnOf(device, part, ownPart(part, all));
}

/// All elements of a column, on every rank. Collective.
template <class G>
std::vector<int> everywhere(const ParMatrixT<int, G, int>& column) {
  std::vector<int> mine(static_cast<std::size_t>(column.getRows()), 0), all(mine);
  const auto values = valuesOf(column);
  std::copy(values.begin(), values.end(), mine.begin() + rangeOf(column.getRowPartitioner()).first);
  MPI_Allreduce(mine.data(), all.data(), static_cast<int>(all.size()), MPI_INT, MPI_SUM,
                kCommWorld);
  return all;
}

/// The entries that this rank stores, by global position.
template <class T, class G>
EntryMap<T> ownEntries(const ParCSRMatrixT<T, G, int>& A) {
  EntryMap<T> out;
  G first_row = 0;
  A.getOwnerShipRange(&first_row, nullptr);
  for (int p = 0; p < A.getColPartitioner().getNumParts(); ++p) {
    const G first_col = rangeOf(A.getColPartitioner(), p).first;
    const auto block = plainOf(A.getLocalMatrix(p));
    for (int i = 0; i < block.rows; ++i) {
      for (const auto& [j, v] : block.row(i)) out[{first_row + i, first_col + j}] = v;
    }
  }
  return out;
}

/// The same of a global matrix.
template <class T, class G>
EntryMap<T> ownEntries(const PartitionerT<G, int>& rows, const HostCsr<T>& all) {
  EntryMap<T> out;
  const auto own = rangeOf(rows);
  for (G i = own.first; i < own.second; ++i) {
    for (const auto& [j, v] : all.row(static_cast<int>(i))) out[{i, j}] = v;
  }
  return out;
}

/// The same positions, and values but for rounding.
template <class T>
void expectNearEntries(const EntryMap<T>& a, const EntryMap<T>& b, double tolerance) {
  ASSERT_EQ(a.size(), b.size());
  for (const auto& [at, v] : b) {
    ASSERT_EQ(a.count(at), 1u) << at.first << " " << at.second;
    EXPECT_LE(abs(a.at(at) - v), tolerance * (1 + abs(v))) << at.first << " " << at.second;
  }
}

/// The rows of P are those of a whole one, to rounding, and its columns spread evenly.
template <class T>
void expectRowsOf(const ParSparse<T>& P, const HostCsr<T>& whole,
                  const PartitionerT<long, int>& rows, double tolerance) {
  PartitionerT<long, int> even;
  even.create(whole.cols, worldSize());
  EXPECT_TRUE(P.getRowPartitioner() == rows);
  ASSERT_TRUE(P.getColPartitioner() == even) << P.getCols() << " " << whole.cols;
  expectNearEntries(ownEntries(P), ownEntries(rows, whole), tolerance);
}

/// A matrix with the entries of a global one, in their order; nothing travels.
template <class T, class G>
ParCSRMatrixT<T, G, int> distributed(const Device& device, const PartitionerT<G, int>& rows,
                                     const PartitionerT<G, int>& cols, const HostCsr<T>& all) {
  const int begin = static_cast<int>(rangeOf(rows).first);
  const auto own =
      HostCsr<T>::build(rows.getLocalSizeForPart(worldRank()), all.cols, [&](int i, auto& out) {
        for (const auto& [j, v] : all.row(begin + i)) out.push(j, v);
      });
  std::vector<CSRMatrixT<T, int>> blocks;
  sparseOf(device, own).splitCols(cols, blocks);
  ParCSRMatrixT<T, G, int> A;
  A.create(rows, cols, blocks, device);
  return A;
}

/// Random pattern and small values off a diagonal that outweighs the rows.
template <class T>
HostCsr<T> dominatedCsr(std::mt19937& rng, int n) {
  const HostCsr<T> a = randomCsr<T>(rng, n, n);
  return HostCsr<T>::build(n, n, [&](int i, HostCsr<T>& out) {
    for (const auto& [j, v] : a.row(i)) {
      if (j != i) out.push(j, v);
    }
    out.push(i, T(RealType<T>(90)));
  });
}

/// The same steps but for rounding; `tolerance` relative to each norm.
template <class R>
void expectSameHistory(const std::vector<R>& a, const std::vector<R>& b, double tolerance) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t k = 0; k < b.size(); ++k) {
    // Where the method ends, what is left is rounding.
    EXPECT_NEAR(a[k], b[k], tolerance * b[k] + 1e-14 * b[0]) << "status " << k;
  }
}

}  // namespace mivo::test
