// SPDX-License-Identifier: Apache-2.0

// Classical coarsening with direct interpolation on several ranks.

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "mivo/level_transfer/ruge_stuben/ParLevelTransferRugeStuben.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/ranks.hpp"
#include "tests/support/ruge_stuben.hpp"

namespace mivo::test {
namespace {

using Part = PartitionerT<long, int>;
using Matrix = ParSparse<double>;

/// This rank's rows of P are those of the whole one, to rounding, and its columns spread evenly.
template <class T>
void expectRowsOf(const ParSparse<T>& P, const HostCsr<T>& whole, const Part& rows) {
  EXPECT_TRUE(P.getRowPartitioner() == rows);
  Part even;
  even.create(whole.cols, worldSize());
  ASSERT_TRUE(P.getColPartitioner() == even) << P.getCols() << " " << whole.cols;
  EntryMap<T> expected;
  long begin = 0, end = 0;
  rows.getOwnerShipRangeForPart(worldRank(), &begin, &end);
  for (long i = begin; i < end; ++i) {
    for (const auto& [j, v] : whole.row(static_cast<int>(i))) expected[{i, j}] = v;
  }
  const auto found = ownEntries(P);
  ASSERT_EQ(found.size(), expected.size());
  for (const auto& [at, v] : found) {
    ASSERT_EQ(expected.count(at), 1u) << at.first << " " << at.second;
    EXPECT_LE(abs(v - expected[at]), 1e-13 * (1 + abs(expected[at])))
        << at.first << " " << at.second;
  }
}

/// The same matrix with the entries of each row from the last to the first.
template <class T>
ParSparse<T> backwards(const ParSparse<T>& A) {
  std::vector<CSRMatrixT<T, int>> blocks;
  for (int p = 0; p < A.getColPartitioner().getNumParts(); ++p) {
    blocks.push_back(A.getLocalMatrix(p));
    if (blocks.back().getNnz() == 0) continue;
    const auto block = plainOf(blocks.back());
    const auto turned = HostCsr<T>::build(block.rows, block.cols, [&](int i, HostCsr<T>& out) {
      const auto row = block.row(i);
      for (auto entry = row.rbegin(); entry != row.rend(); ++entry) {
        out.push(entry->first, entry->second);
      }
    });
    blocks.back() = sparseOf(A.getDevice(), turned);
  }
  ParSparse<T> out;
  out.create(A.getRowPartitioner(), A.getColPartitioner(), blocks, A.getDevice());
  return out;
}

template <class T>
class DirectInterpolationOnRanks : public testing::Test {};
using DoubleTypes = testing::Types<double, Complex<double>>;
TYPED_TEST_SUITE(DirectInterpolationOnRanks, DoubleTypes);

// For the same marks, also when the weak entries have left S, and some of its blocks with them, and
// when rows are in no order.
TYPED_TEST(DirectInterpolationOnRanks, IsThatOfOneRank) {
  using T = TypeParam;
  using Ops = LevelTransferOps_RS<T, long, int>;
  std::mt19937 rng(1);
  for (const int n : {3, 23}) {
    for (const Part& part : worldCuts<long>(n, rng)) {
      for (const Device& device : rankDevices()) {
        const bool do_trunc = rng() % 2 == 0;
        const auto problem = DirectProblem<T>::random(rng, n, 1, -1);
        long ncoarse = -1;
        CSRMatrixT<T, int> whole;
        Ops::interpolation(sparseOf(Device(), problem.a), sparseOf(Device(), problem.s),
                           matrixOf(Device(), n, 1, problem.cf), do_trunc, 0.4, 1, -1, ncoarse,
                           whole);
        auto A = distributed<T, long>(device, part, part, problem.a);
        auto S = distributed<int, long>(device, part, part, problem.s);
        const auto cf = ownColumn(device, part, problem.cf);
        if (rng() % 2 == 0) {
          A = backwards(A);
          S = backwards(S);
        }
        for (const bool sparse : {false, true}) {
          ParSparse<T> P;
          long found = -1;
          Ops::par_interpolation(A, sparse ? S.sparsify(0) : S, cf, do_trunc, 0.4, 1, -1, found, P);
          EXPECT_EQ(found, ncoarse);
          expectRowsOf(P, plainOf(whole), part);
        }
      }
    }
  }
}

// Connections cross the ranks, splittings stay within them.
TEST(RugeStuebenOnRanks, ConnectsWholeRowsAndSplitsOwnBlocks) {
  using Ops = LevelTransferOps_RS<double, long, int>;
  std::mt19937 rng(2);
  const int n = 29;
  for (const Part& part : worldCuts<long>(n, rng)) {
    for (const Device& device : rankDevices()) {
      const auto a = DirectProblem<double>::random(rng, n, 1, -1).a;
      CSRMatrixT<int, int> s;
      MatrixT<int, int> marks;
      Ops::connect(sparseOf(Device(), a), 0.3, s, marks);
      const auto A = distributed<double, long>(device, part, part, a);
      ParSparse<int> S;
      ParMatrixT<int, long, int> cf;
      Ops::par_connect(A, 0.3, S, cf);
      EXPECT_EQ(valuesOf(cf), ownPart(part, valuesOf(marks)));
      EXPECT_EQ(ownEntries(S), ownEntries(distributed<int, long>(device, part, part, plainOf(s))));

      Ops::par_rs_cfsplit(A, S, cf);
      long begin = 0, end = 0;
      part.getOwnerShipRangeForPart(worldRank(), &begin, &end);
      const auto own = HostCsr<int>::build(
          static_cast<int>(end - begin), static_cast<int>(end - begin),
          [&](int i, HostCsr<int>& out) {
            for (const auto& [j, v] : plainOf(s).row(static_cast<int>(begin) + i)) {
              if (j >= begin && j < end) out.push(j - static_cast<int>(begin), v);
            }
          });
      auto expected = matrixOf(Device(), own.rows, 1, ownPart(part, valuesOf(marks)));
      Ops::cfsplit(CSRMatrixT<double, int>(), sparseOf(Device(), own), expected);
      EXPECT_EQ(valuesOf(cf), valuesOf(expected));
    }
  }
}

// The form on rank 0 gives every rank its rows of what one rank gets. The distributed one splits by
// itself, and interpolates like one rank for the marks that it has found.
TEST(RugeStuebenOnRanks, ProlongsAsOnOneRank) {
  using Ops = LevelTransferOps_RS<double, long, int>;
  std::mt19937 rng(3);
  const auto a = laplacian<double>(9, 8);
  SeqLevelTransferRugeStuben_T<double, long, int> alone;
  Matrix P1, R1;
  alone.transfer_operators(parSparseOf(Device(), a, MPI_COMM_SELF), P1, R1);
  const auto whole = plainOf(P1.getLocalMatrix(0));
  for (const Device& device : rankDevices()) {
    for (const Part& part : worldCuts<long>(72, rng)) {
      const auto A = distributed<double, long>(device, part, part, a);
      Matrix P, R;
      SeqLevelTransferRugeStuben_T<double, long, int> gathered;
      gathered.transfer_operators(A, P, R);
      expectRowsOf(P, whole, part);
      EXPECT_EQ(ownEntries(R.transpose()), ownEntries(P));
      EXPECT_EQ(gathered.impl, nullptr);

      ParLevelTransferRugeStuben_T<double, long, int> spread;
      spread.keep = true;
      spread.transfer_operators(A, P, R);
      std::vector<int> marks(72, 0);
      long begin = 0;
      part.getOwnerShipRangeForPart(worldRank(), &begin, nullptr);
      const auto own = valuesOf(spread.impl->parCf);
      std::copy(own.begin(), own.end(), marks.begin() + begin);
      MPI_Allreduce(MPI_IN_PLACE, marks.data(), 72, MPI_INT, MPI_SUM, kCommWorld);
      CSRMatrixT<int, int> s;
      MatrixT<int, int> undecided;
      CSRMatrixT<double, int> expected;
      long ncoarse = -1;
      Ops::connect(sparseOf(Device(), a), 0.25, s, undecided);
      Ops::interpolation(sparseOf(Device(), a), s, matrixOf(Device(), 72, 1, marks), true, 0.2, 1,
                         -1, ncoarse, expected);
      expectRowsOf(P, plainOf(expected), part);
      EXPECT_GT(ncoarse, 0);
      EXPECT_EQ(ownEntries(R.transpose()), ownEntries(P));
      for (const auto& [at, v] : ownEntries(R.multiply(A).multiply(P))) {
        EXPECT_NEAR(spread.impl->Ac.getElementValue(at.first, at.second, nullptr), v, 1e-13);
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
