// SPDX-License-Identifier: Apache-2.0

// Operations on whole distributed matrices. Values are small whole numbers, so that sums are exact
// in any order, unless a case is about the order.

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <type_traits>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "tests/support/message_spy.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

using Part = PartitionerT<long, int>;
template <class T>
using Matrix = ParSparse<T>;

/// The partitions, the device and this rank's entries are those expected, blocks whole.
template <class T>
void expectMatrix(const Matrix<T>& m, const Part& rows, const Part& cols, const Device& device,
                  const EntryMap<T>& expected) {
  EXPECT_EQ(m.getRowPartitioner(), rows);
  EXPECT_EQ(m.getColPartitioner(), cols);
  EXPECT_EQ(m.getDevice(), device);
  EXPECT_EQ(ownEntries(m), expected);
  std::size_t entries = 0;
  for (int c = 0; c < worldSize(); ++c) {
    const auto block = m.getLocalMatrix(c);
    if (block.getNnz() == 0) continue;
    entries += static_cast<std::size_t>(block.getNnz());
    EXPECT_EQ(block.getDevice(), device);
    EXPECT_EQ(block.getCols(), cols.getLocalSizeForPart(c));
  }
  EXPECT_EQ(entries, expected.size()) << "each position once";
}

/// This rank's rows of A B: the products of the blocks of A with their rows of B, added up in the
/// order of the blocks.
template <class T>
EntryMap<T> productOf(const HostCsr<T>& a, const Part& rows, const HostCsr<T>& b,
                      const Part& inner) {
  EntryMap<T> sum;
  for (int p = 0; p < worldSize(); ++p) {
    EntryMap<T> term;
    for (const auto& [at, u] : ownEntries(rows, a)) {
      if (at.second < rangeOf(inner, p).first || at.second >= rangeOf(inner, p).second) continue;
      for (const auto& [j, v] : b.row(static_cast<int>(at.second))) term[{at.first, j}] += v * u;
    }
    for (const auto& [at, v] : term) sum[at] += v;
  }
  return sum;
}

/// Sorted rows, as an assembly leaves them.
template <class T>
HostCsr<T> sortedRandom(std::mt19937& rng, int rows, int cols) {
  return randomCsr<T>(rng, rows, cols).sorted();
}

template <class T>
class AlgebraOverRanks : public testing::Test {};
using Types = testing::Types<long, float, Complex<double>>;
TYPED_TEST_SUITE(AlgebraOverRanks, Types);

// The last bits tell the order of the sums.
TYPED_TEST(AlgebraOverRanks, ProductSumsTheBlocksInTheirOrder) {
  using T = TypeParam;
  std::mt19937 rng(23);
  for (const auto& [m, n, k] : {std::tuple{19, 19, 19}, {12, 31, 5}, {3, 2, 17}}) {
    auto a = sortedRandom<T>(rng, m, n), b = sortedRandom<T>(rng, n, k);
    if constexpr (!std::is_integral_v<T>) {
      for (auto* values : {&a.values, &b.values}) {
        for (T& v : *values) v = v * T(RealType<T>(0.1)) + T(RealType<T>(0.7));
      }
    }
    forCuts({m, n, k}, rng, [&](const Device& device, const std::vector<Part>& parts) {
      const auto A = distributed(device, parts[0], parts[1], a);
      const auto B = distributed(device, parts[1], parts[2], b);
      Matrix<T> C;
      A.multiply(B, C);
      expectMatrix(C, parts[0], parts[2], device, productOf(a, parts[0], b, parts[1]));
    });
  }
}

TYPED_TEST(AlgebraOverRanks, TransposeSwapsThePartitionsToo) {
  using T = TypeParam;
  std::mt19937 rng(31);
  for (const auto& [m, n] : {std::pair{23, 23}, {4, 27}, {18, 1}}) {
    const auto a = sortedRandom<T>(rng, m, n);
    const auto turned = a.transposed();
    forCuts({m, n}, rng, [&](const Device& device, const std::vector<Part>& parts) {
      expectMatrix(distributed(device, parts[0], parts[1], a).transpose(), parts[1], parts[0],
                   device, ownEntries(parts[1], turned));
    });
  }
}

TYPED_TEST(AlgebraOverRanks, SumsAndScalingsActOnEachEntry) {
  using T = TypeParam;
  using R = RealType<T>;
  const T alpha = T(R(2)), beta = T(R(-3));
  std::mt19937 rng(37);
  for (const auto& [m, n] : {std::pair{20, 20}, {7, 26}, {25, 3}}) {
    const auto a = sortedRandom<T>(rng, m, n), b = sortedRandom<T>(rng, m, n);
    const auto rows = smallVector<T>(rng, static_cast<std::size_t>(m));
    const auto cols = smallVector<T>(rng, static_cast<std::size_t>(n));
    forCuts({m, n}, rng, [&](const Device& device, const std::vector<Part>& parts) {
      const auto A = distributed(device, parts[0], parts[1], a);
      const auto B = distributed(device, parts[0], parts[1], b);
      const auto ofA = ownEntries(parts[0], a);
      const auto expect = [&](const Matrix<T>& X, const EntryMap<T>& expected) {
        expectMatrix(X, parts[0], parts[1], device, expected);
      };
      EntryMap<T> sum, byRow = ofA, byCol = ofA;
      for (const auto& [at, v] : ofA) sum[at] = alpha * v;
      for (const auto& [at, v] : ownEntries(parts[0], b)) sum[at] += beta * v;
      Matrix<T> out;
      Matrix<T>::matadd(alpha, A, beta, B, out);
      expect(out, sum);
      for (const T& threshold : {T(2), T(0)}) {
        expect(A.sparsify(threshold), ownEntries(parts[0], a.filtered([&](int, int, const T& v) {
                 return abs(v) > abs(threshold);
               })));
      }
      for (auto& [at, v] : byRow) v = v * (rows[static_cast<std::size_t>(at.first)] * alpha);
      for (auto& [at, v] : byCol) v = v * (cols[static_cast<std::size_t>(at.second)] * alpha);
      auto scaled = A.deepCopy();
      scaled.matmul_aDA(alpha, ownColumn(device, parts[0], rows), out);
      expect(out, byRow);
      expect(scaled, byRow);
      EXPECT_EQ(out.getLocalMatrix(0).getValues(), scaled.getLocalMatrix(0).getValues());
      scaled = A.deepCopy();
      scaled.matmul_aAD(alpha, ownColumn(device, parts[1], cols), out);
      expect(out, byCol);
      expect(scaled, byCol);
      expect(A, ofA);
    });
  }
}

// Rows without a diagonal entry gain one where rows and columns are cut alike.
TYPED_TEST(AlgebraOverRanks, DiagonalUpdateFindsTheDiagonalInWhateverBlockItLies) {
  using T = TypeParam;
  using R = RealType<T>;
  const T alpha = T(R(2)), beta = T(R(-3));
  std::mt19937 rng(41);
  for (const auto& [m, n] : {std::pair{20, 20}, {9, 14}, {15, 8}}) {
    const long diagonals = std::min(m, n);
    const bool square = m == n;
    const auto random = sortedRandom<T>(rng, m, n);
    const auto full = HostCsr<T>::build(m, n, [&](int i, HostCsr<T>& to) {
      for (const auto& [j, v] : random.row(i)) to.push(j, v);
      if (i < diagonals) to.accumulate(i, T(5));
    });
    const auto d1 = smallVector<T>(rng, static_cast<std::size_t>(m));
    const auto d2 = smallVector<T>(rng, static_cast<std::size_t>(m));
    forCuts({m, n}, rng, [&](const Device& device, const std::vector<Part>& parts) {
      const auto a = (square && parts[0] == parts[1] ? random : full).sorted();
      const auto A = distributed(device, parts[0], parts[1], a);
      const auto own = rangeOf(parts[0]);
      for (const int given : {0, 1, 2, 3}) {
        const bool first = given % 2 > 0, second = given / 2 > 0;
        const auto v1 = first ? ownColumn(device, parts[0], d1) : ParMatrixT<T, long, int>();
        const auto v2 = second ? ownColumn(device, parts[0], d2) : ParMatrixT<T, long, int>();
        Matrix<T> out;
        Matrix<T>::axpbyDiag(alpha, v1, beta, v2, A, out);
        auto expected = ownEntries(parts[0], a);
        for (long i = own.first; i < std::min(own.second, diagonals); ++i) {
          const std::size_t at = static_cast<std::size_t>(i);
          T& v = expected[{i, i}];
          v = beta * (second ? d2[at] : T(1)) * v + (first ? alpha * d1[at] : T(0));
        }
        expectMatrix(out, parts[0], parts[1], device, expected);
      }
      EXPECT_EQ(ownEntries(A), ownEntries(parts[0], a));
    });
  }
}

TEST(AlgebraOverRanksOnce, AResultMayBeAnOperand) {
  std::mt19937 rng(29);
  forCuts({14, 9, 21}, rng, [&](const Device& device, const std::vector<Part>& parts) {
    const auto A = distributed(device, parts[0], parts[1], randomCsr<float>(rng, 14, 9));
    const auto B = distributed(device, parts[1], parts[2], randomCsr<float>(rng, 9, 21));
    auto X = B;
    A.multiply(X, X);
    X.transpose(X);
    EXPECT_TRUE(X == B.transpose().multiply(A.transpose()));
    Matrix<float>::matadd(1, X, -1, A.multiply(B).transpose(), X);
    for (const auto& entry : ownEntries(X)) EXPECT_EQ(entry.second, 0);
  });
}

// The second result is larger than the room made at first; the third has an A without entries; the
// last has rows of P that are too long to be put together.
TEST(AlgebraOverRanksOnce, ProductOfThreeIsThatOfTwoProducts) {
  using T = double;
  std::mt19937 rng(53);
  for (const std::vector<int>& n :
       {std::vector{14, 9, 21, 6}, {40, 3, 3, 50}, {8, 5, 7, 9}, {5, 6, 30, 700}}) {
    const auto r = randomCsr<T>(rng, n[0], n[1]), p = randomCsr<T>(rng, n[2], n[3]);
    const auto a = n[0] == 8 ? HostCsr<T>::build(n[1], n[2], [](int, HostCsr<T>&) {})
                             : randomCsr<T>(rng, n[1], n[2]);
    forCuts({n.begin(), n.end()}, rng, [&](const Device& device, const std::vector<Part>& parts) {
      const auto R = distributed(device, parts[0], parts[1], r);
      const auto A = distributed(device, parts[1], parts[2], a);
      const auto P = distributed(device, parts[2], parts[3], p);
      Matrix<T> C;
      Matrix<T>::multiplyTriple(R, A, P, C);
      const auto expected = R.multiply(A).multiply(P);
      EXPECT_EQ(C.getNnzs(), expected.getNnzs());
      EXPECT_TRUE(C == expected);
    });
  }
}

TEST(AlgebraOverRanksOnce, StructureForAnotherTypeBringsItsPlanAlong) {
  std::mt19937 rng(47);
  const auto a = sortedRandom<double>(rng, 17, 17);
  std::vector<float> expected;
  for (int i = 0; i < 17; ++i) expected.push_back(6.0F * static_cast<float>(a.row(i).size()));
  forCuts({17, 17}, rng, [&](const Device& device, const std::vector<Part>& parts) {
    const auto A = distributed(device, parts[0], parts[1], a);
    for (const bool prepared : {false, true}) {
      if (prepared) A.prepareMatVec(false);
      Matrix<float> S;
      A.copyStructure(S);
      S.fill(2.0F);
      const MessageSpy& spy = MessageSpy::start();
      const auto y = S.matVec(ownColumn(device, parts[1], std::vector<float>(17, 3.0F)));
      EXPECT_EQ(spy.alltoalls, prepared ? 0 : 1);
      EXPECT_EQ(valuesOf(y), ownPart(parts[0], expected));
    }
  });
}

// Beside the numbers that tell of the blocks, which are fewer than 5 and their row pointers each.
TEST(AlgebraOverRanksOnce, ProductShipsTheRowsAskedForAndNoOthers) {
  std::mt19937 rng(59);
  const int m = 6, n = 90, k = 30;
  const auto a = sortedRandom<double>(rng, m, n), b = sortedRandom<double>(rng, n, k);
  forCuts({m, n, k}, rng, [&](const Device& device, const std::vector<Part>& parts) {
    const auto A = distributed(device, parts[0], parts[1], a);
    const auto B = distributed(device, parts[1], parts[2], b);
    A.prepareMatVec(false);
    const MessageSpy& spy = MessageSpy::start();
    A.multiply(B);
    EXPECT_EQ(spy.alltoalls, 1);
    const auto own = rangeOf(parts[1]);
    for (const Message& message : spy.sent) {
      const auto readers = rangeOf(parts[0], message.peer);
      std::set<int> asked;
      for (long i = readers.first; i < readers.second; ++i) {
        for (const auto& entry : a.row(static_cast<int>(i))) {
          if (entry.first >= own.first && entry.first < own.second) asked.insert(entry.first);
        }
      }
      long bytes = 4 + 4 * (own.second - own.first + 5) * (asked.empty() ? 0 : worldSize());
      for (const int row : asked) bytes += 12 * static_cast<long>(b.row(row).size());
      EXPECT_LE(message.bytes, bytes) << "to rank " << message.peer;
    }
  });
}

TEST(AlgebraOverRanksOnce, EmptyMatricesTakePartInEverything) {
  for (const Device& device : rankDevices()) {
    Matrix<double> A, none, square, out;
    A.create(6, 9, device);
    none.create(0, 4, device);
    square.create(6, 6, device);
    const auto turned = A.transpose();
    EXPECT_EQ(turned.getRows(), 9);
    EXPECT_EQ(turned.getCols(), 6);
    EXPECT_EQ(none.multiply(none).getRows(), 0);
    EXPECT_EQ(none.transpose().getRows() + none.transpose().getCols(), 0);
    EXPECT_EQ(none.gather(0).getRows() + A.gather(0).getRows(), 0);
    Matrix<double>::matadd(1, A, 1, A, out);
    EXPECT_EQ(out.getNnzs() + A.multiply(turned).getNnzs(), 0);
    EXPECT_EQ(A.sparsify(0).getNnzs() + none.sparsify(0).getNnzs(), 0);
    const ParMatrixT<double, long, int> d(6, device), e(9, device);
    A.matmul_aDA(1, d, out);
    A.matmul_aAD(1, e, out);
    EXPECT_EQ(out.getNnzs(), 0);
    // A diagonal appears where there was no block.
    d.getLocalMatrix().fill(2.0);
    Matrix<double>::axpbyDiag(3, d, 1, {}, square, out);
    EXPECT_EQ(out.getNnzs(), 6);
    EXPECT_EQ(valuesOf(out.getDiag()),
              std::vector<double>(static_cast<std::size_t>(out.getLocalRows()), 6.0));

    out.tagName = "coarse";
    const auto top = out.rowTopK(2);
    EXPECT_EQ(top.getNnzs(), 0);
    EXPECT_EQ(top.getRowPartitioner(), out.getRowPartitioner());
    EXPECT_EQ(top.tagName, "coarse");
  }
}

}  // namespace
}  // namespace mivo::test
