// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

template <class Types>
class AssemblyOverRanks : public testing::Test {};
using TypePairs =
    testing::Types<TypePair<int, int>, TypePair<float, long>, TypePair<Complex<double>, long>>;
TYPED_TEST_SUITE(AssemblyOverRanks, TypePairs);

/// A stores the entries of `all` in its rows, sorted in each block.
template <class T, class G>
void expectEntries(const ParCSRMatrixT<T, G, int>& A, const EntryMap<T>& all) {
  G begin = 0, end = 0;
  A.getOwnerShipRange(&begin, &end);
  EXPECT_EQ(ownEntries(A), EntryMap<T>(all.lower_bound({begin, 0}), all.lower_bound({end, 0})));
  EXPECT_EQ(A.getNnzs(), static_cast<G>(all.size()));
  int stored = 0;
  for (int p = 0; p < A.getColPartitioner().getNumParts(); ++p) {
    const auto block = plainOf(A.getLocalMatrix(p));
    EXPECT_EQ(block, block.sorted());
    if (block.values.empty()) continue;
    EXPECT_EQ(block.cols, A.getColPartitioner().getLocalSizeForPart(p));
    ++stored;
  }
  typename ParCSRMatrixT<T, G, int>::BlockTable table;
  A.getRawMat(table);
  EXPECT_EQ(table.getSize(), stored) << "blocks without entries are left out";
}

/// Each rank sets entries of all rows; what it has set counts once, what it has added and what
/// others have set or added is summed.
TYPED_TEST(AssemblyOverRanks, EntriesFindTheirOwnersFromAnyRank) {
  using T = typename TypeParam::T;
  using G = typename TypeParam::I;
  std::mt19937 rng(11);
  // The last shapes have fewer rows, or columns, than there may be ranks.
  for (const auto& [rows, cols] : std::vector<std::pair<G, G>>{{23, 17}, {9, 9}, {2, 3}, {5, 1}}) {
    const G m = rows, n = cols;
    forCuts<G>({m, n}, rng, [&](const Device& device, const auto& parts) {
      ParCSRMatrixT<T, G, int> A;
      A.create(parts[0], parts[1], {}, device);
      A.beginAssemble();
      EntryMap<T> all;
      for (int r = 0; r < worldSize(); ++r) {
        if (r % 3 == 2) continue;  // sets nothing, but takes part
        EntryMap<T> of_rank;
        for (int k = 0; k < 60; ++k) {
          const G i = static_cast<G>(rng() % static_cast<unsigned>(m));
          const G j = static_cast<G>(rng() % static_cast<unsigned>(n));
          const T v = smallValue<T>(rng);
          const bool set = rng() % 3 == 0;
          T& entry = of_rank[{i, j}];
          entry = set ? v : T(entry + v);
          if (r != worldRank()) continue;
          A.setValue(i, j, v, set ? SetValueMode::Set : SetValueMode::Add);
          A.setValue(i, j, T(99), static_cast<SetValueMode>(2));  // no mode, no effect
        }
        for (const auto& [at, v] : of_rank) all[at] += v;
      }
      A.endAssemble();
      EXPECT_EQ(A.getDevice(), device);
      expectEntries(A, all);
    });
  }
}

TYPED_TEST(AssemblyOverRanks, AMatrixWithGlobalIndicesIsSummedOverTheRanksThatHoldEntries) {
  using T = typename TypeParam::T;
  using G = typename TypeParam::I;
  // Whoever holds entries: rank 0 alone, the last alone, all.
  for (const int holders : {0, 1, 2}) {
    SCOPED_TRACE(holders);
    std::mt19937 rng(5);
    EntryMap<T> all;
    HostCsr<T, G> mine;
    for (int r = 0; r < worldSize(); ++r) {
      const bool holds = holders == 2 || r == (holders == 0 ? 0 : worldSize() - 1);
      const G rows = holds ? static_cast<G>(4 + 3 * r) : G(0);
      for (G i = 0; i < rows; ++i) {
        // Some rows are empty, some long, with repeated columns.
        for (int n = i % 4 == 3 ? 0 : (i % 5 == 2 ? 14 : 3); n > 0; --n) {
          const G j = static_cast<G>(rng() % 7);
          const T v = smallValue<T>(rng);
          all[{i, j}] += v;
          if (r == worldRank()) mine.push(j, v);
        }
        if (r == worldRank()) mine.endRow();
      }
    }
    mine.cols = mine.rows > 0 ? 7 : 0;
    ParCSRMatrixT<T, G, int> A;
    const Device device = rankDevices().back();
    A.createByAssemble(sparseOf(device, mine), kCommWorld);
    EXPECT_TRUE(mine.rows == 0 || A.getDevice() == device);
    EXPECT_EQ(A.getRows(), holders == 0 ? 4 : 1 + 3 * worldSize());
    EXPECT_EQ(A.getCols(), 7);
    expectEntries(A, all);
  }
}

TEST(AssemblyOverRanksOnce, ARankWithoutEntriesKeepsUpWithChanges) {
  // Entries move from the first to the last row: blocks, plans and products follow.
  const long n = 2 * worldSize() + 1;
  ParCSRMatrixT<double, long, int> A;
  A.create(n, n, Device());
  const std::vector<double> ones(static_cast<std::size_t>(n), 1.0);
  const auto x = ownColumn(Device(), A.getColPartitioner(), ones);
  for (long row = 0; row < n; ++row) {
    A.beginAssemble();
    if (worldRank() == worldSize() - 1) {
      for (long j = 0; j < n; j += 2) A.setValue(row, j, 2.0, SetValueMode::Set);
    }
    A.endAssemble();
    std::vector<double> expected(static_cast<std::size_t>(n), 0.0);
    expected[static_cast<std::size_t>(row)] = static_cast<double>(2 * (n / 2 + 1));
    EXPECT_EQ(valuesOf(A.matVec(x)), ownPart(A.getRowPartitioner(), expected));
  }
}

TEST(AssemblyOverRanksOnce, RanksBeyondThePartsOwnNoRows) {
  const long n = 6;
  PartitionerT<long, int> rows, cols;
  rows.create(n, std::max(1, worldSize() - 1));
  cols.create(n, worldSize());
  ParCSRMatrixT<double, long, int> A;
  A.create(rows, cols, {}, Device());
  A.beginAssemble();
  for (long i = 0; i < n; ++i) A.setValue(i, n - 1 - i, 1.0, SetValueMode::Add);
  A.endAssemble();
  const auto y = A.matVec(ownColumn(Device(), cols, std::vector<double>(n, 1.0)));
  EXPECT_EQ(valuesOf(y),
            std::vector<double>(static_cast<std::size_t>(A.getLocalRows()), worldSize()));
  EXPECT_EQ(A.gather(0).getRows(), worldRank() == 0 ? n : 0);
}

// A handful of rows far out in a range that 32 bits cannot number: all that a rank allocates goes
// by its own rows.
TEST(AssemblyOverRanksOnce, RowsAboveTwoToThe32AreAssembledAndMultiplied) {
  constexpr long kFirst = (1L << 32) + 5, kRows = 7;
  std::vector<long> offsets{kFirst};
  for (int r = 1; r < worldSize(); ++r) offsets.push_back(kFirst + 3 + r);
  offsets.push_back(kFirst + kRows);
  PartitionerT<long, int> part;
  part.create(1L << 33, offsets);
  const auto next = [](long i) { return (i + 1) % kRows; };
  const auto d = [](long i) { return 4.0 + static_cast<double>(i); };
  const auto e = [](long i) { return -1.0 - static_cast<double>(i); };
  for (const Device& device : rankDevices()) {
    ParCSRMatrixT<double, long, int> A;
    ParMatrixT<double, long, int> x;
    A.create(part, part, {}, device);
    x.create(part, device);
    A.beginAssemble();
    x.beginAssemble();
    // Each rank sets rows of all ranks.
    for (long i = worldRank(); i < kRows; i += worldSize()) {
      A.setValue(kFirst + i, kFirst + i, d(i), SetValueMode::Set);
      A.setValue(kFirst + i, kFirst + next(i), e(i), SetValueMode::Set);
      x.setValue(kFirst + i, d(i), SetValueMode::Set);
    }
    A.endAssemble();
    x.endAssemble();
    EXPECT_EQ(A.getRows(), 1L << 33);
    EXPECT_EQ(A.getNnzs(), 2 * kRows);
    const auto y = A.matVec(x), diagonal = A.getDiag();
    const auto own = rangeOf(part);
    ASSERT_LT(own.first, own.second);
    for (long row = own.first; row < own.second; ++row) {
      const long i = row - kFirst;
      EXPECT_EQ(y.getElementValue(row, 0, nullptr), d(i) * d(i) + e(i) * d(next(i)));
      EXPECT_EQ(A.getElementValue(row, kFirst + next(i), nullptr), e(i));
      EXPECT_EQ(diagonal.getElementValue(row, 0, nullptr), d(i));
    }
  }
}

}  // namespace
}  // namespace mivo::test
