// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/ranks.hpp"

// Distributed matrices whose pattern and partitions every rank knows, so that each can work out
// what the halo exchange has to do.

namespace mivo::test {

/// Set by the main program when the message layer was started for helper threads.
extern bool helperThread;

/// A handle where the run is about helper threads, else null.
template <class T>
struct Async {
  typename ParSparse<T>::AsyncMatVecObject object;
  typename ParSparse<T>::AsyncMatVecObject* get() { return helperThread ? &object : nullptr; }
  void wait() {
    if (!helperThread || worldSize() == 1) return;
    EXPECT_EQ(object.wait(), 0);
  }
};

inline std::vector<long> evenly(long n, int parts) {
  PartitionerT<long, int> part;
  part.create(n, parts);
  return part.getOffsets();
}

/// Offsets where part `p` has all of them.
inline std::vector<long> allTo(int p, long n, int parts) {
  std::vector<long> offsets(static_cast<std::size_t>(parts) + 1, 0);
  for (int k = p + 1; k <= parts; ++k) offsets[static_cast<std::size_t>(k)] = n;
  return offsets;
}

struct Spread {
  std::string name;
  std::vector<long> rows, cols;  ///< offsets by rank
  std::function<bool(long, long)> stored;

  long first(const std::vector<long>& offsets, int p) const {
    return offsets[static_cast<std::size_t>(p)];
  }
  int size(const std::vector<long>& offsets, int p) const {
    return static_cast<int>(first(offsets, p + 1) - first(offsets, p));
  }
  bool isSquare() const { return rows == cols; }

  /// Columns of `owner`, counted from its first one, that the rows of `reader` touch.
  std::vector<int> touched(int reader, int owner) const {
    std::vector<int> out;
    for (int j = 0; j < size(cols, owner); ++j) {
      bool found = false;
      for (long i = first(rows, reader); i < first(rows, reader + 1); ++i) {
        found = found || stored(i, first(cols, owner) + j);
      }
      if (found) out.push_back(j);
    }
    return out;
  }
};

/// Patterns that make ranks need few, many, all or no entries of each other, with ranks that have
/// no rows, no columns, no own block or nothing at all.
inline std::vector<Spread> spreads() {
  const int parts = worldSize();
  const auto scattered = [](long i, long j) {
    return (i * 7919 + j * 10473 + i * j * 31) % 4 == 0;
  };
  const auto all = [](long, long) { return true; };
  const std::vector<long> pieces = evenly(2 * parts + 3, parts);
  const auto partOf = [pieces](long k) {
    int p = 0;
    while (pieces[static_cast<std::size_t>(p) + 1] <= k) ++p;
    return p;
  };
  return {
      {"neighbours", pieces, pieces, [](long i, long j) { return i - j <= 1 && j - i <= 1; }},
      {"scattered", evenly(13, parts), evenly(13, parts), scattered},
      {"wide", evenly(5, parts), evenly(17, parts), scattered},
      {"tall", evenly(11, parts), evenly(6, parts), scattered},
      {"own blocks only", pieces, pieces, [=](long i, long j) { return partOf(i) == partOf(j); }},
      {"no own blocks", pieces, pieces,
       [=](long i, long j) { return partOf(j) == (partOf(i) + 1) % parts; }},
      {"everybody reads rank 0", pieces, pieces,
       [=](long i, long j) { return i == j || partOf(j) == 0; }},
      {"all on the last rank", allTo(parts - 1, 9, parts), allTo(parts - 1, 9, parts), scattered},
      {"rows on the last rank, columns on the first", allTo(parts - 1, 7, parts),
       allTo(0, 8, parts), all},
      {"two rows", evenly(2, parts), evenly(2, parts), all},
      {"no entries", pieces, pieces, [](long, long) { return false; }},
  };
}

/// Small whole number other than 0.
template <class T>
T entryAt(long i, long j) {
  return T(static_cast<RealType<T>>(1 + (3 * i + 5 * j) % 7));
}

template <class T>
HostCsr<T> wholeOf(const Spread& spread) {
  const int rows = static_cast<int>(spread.rows.back()),
            cols = static_cast<int>(spread.cols.back());
  return HostCsr<T>::build(rows, cols, [&](int i, HostCsr<T>& out) {
    for (int j = 0; j < cols; ++j) {
      if (spread.stored(i, j)) out.push(j, entryAt<T>(i, j));
    }
  });
}

template <class T>
ParSparse<T> spreadMatrix(const Spread& spread, const Device& device) {
  return distributed(device, partsAt(spread.rows), partsAt(spread.cols), wholeOf<T>(spread));
}

/// Calls test(spread, device, A) for a matrix of each pattern, its plan made, on each device.
template <class T, class Test>
void forEachSpread(const Test& test) {
  for (const Device& device : testDevices()) {
    for (const Spread& spread : spreads()) {
      SCOPED_TRACE(spread.name);
      const ParSparse<T> A = spreadMatrix<T>(spread, device);
      A.prepareMatVec(false);
      test(spread, device, A);
    }
  }
}

/// Column in the partition with at(k) as its element k.
template <class T, class At>
ParMatrixT<T, long, int> spreadColumn(const std::vector<long>& offsets, const Device& device,
                                      const At& at) {
  const std::size_t rank = static_cast<std::size_t>(worldRank());
  std::vector<T> values;
  for (long k = offsets[rank]; k < offsets[rank + 1]; ++k) values.push_back(at(k));
  return columnOf(device, partsAt(offsets), values);
}

}  // namespace mivo::test
