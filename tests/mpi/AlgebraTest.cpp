// SPDX-License-Identifier: Apache-2.0

// Operations on whole distributed matrices. Values are small whole numbers, so that sums are exact
// in any order, unless a case is about the order.

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "tests/support/message_spy.hpp"
#include "tests/support/ranks.hpp"

namespace mivo {
namespace {

using test::HostCsr;
using test::Message;
using test::MessageSpy;
using test::ownColumn;
using test::ownEntries;
using test::plainOf;
using test::randomCsr;
using test::rankDevices;
using test::smallVector;
using test::worldCuts;
using test::worldRank;
using test::worldSize;

using Part = PartitionerT<long, int>;
template <class T>
using Matrix = ParCSRMatrixT<T, long, int>;

long first(const Part& part, int p) {
  long begin = 0;
  part.getOwnerShipRangeForPart(p, &begin, nullptr);
  return begin;
}

/// Rows of part p and columns of part c, numbered from 0.
template <class T>
HostCsr<T> blockOf(const HostCsr<T>& all, const Part& rows, int p, const Part& cols, int c) {
  const int row = static_cast<int>(first(rows, p)), col = static_cast<int>(first(cols, c));
  const int width = cols.getLocalSizeForPart(c);
  return HostCsr<T>::build(rows.getLocalSizeForPart(p), width, [&](int i, HostCsr<T>& out) {
    for (const auto& [j, v] : all.row(row + i)) {
      if (j >= col && j < col + width) out.push(j - col, v);
    }
  });
}

/// The matrix with the entries of a global one; nothing travels.
template <class T>
Matrix<T> spread(const Device& device, const Part& rows, const Part& cols, const HostCsr<T>& all) {
  std::vector<CSRMatrixT<T, int>> blocks;
  for (int c = 0; c < worldSize(); ++c) {
    blocks.push_back(test::sparseOf(device, blockOf(all, rows, worldRank(), cols, c)));
  }
  Matrix<T> out;
  out.create(rows, cols, blocks, device);
  return out;
}

/// This rank's blocks stand in `m` as they do in `expected`, whole, with the given partitions.
template <class T>
void expectBlocks(const Matrix<T>& m, const Part& rows, const Part& cols, const Device& device,
                  const std::function<HostCsr<T>(int)>& expected) {
  EXPECT_EQ(m.getRowPartitioner(), rows);
  EXPECT_EQ(m.getColPartitioner(), cols);
  EXPECT_EQ(m.getDevice(), device);
  for (int c = 0; c < worldSize(); ++c) {
    SCOPED_TRACE("block " + std::to_string(c));
    const HostCsr<T> block = expected(c);
    const auto stored = m.getLocalMatrix(c);
    EXPECT_EQ(stored.getNnz(), static_cast<int>(block.values.size()));
    if (block.values.empty() || stored.getNnz() == 0) continue;
    EXPECT_EQ(stored.getDevice(), device);
    EXPECT_EQ(stored.getCols(), cols.getLocalSizeForPart(c));
    EXPECT_EQ(plainOf(stored), block);
  }
}

/// The same for the blocks of a global matrix.
template <class T>
void expectWhole(const Matrix<T>& m, const std::vector<Part>& parts, const Device& device,
                 const HostCsr<T>& all) {
  expectBlocks<T>(m, parts[0], parts[1], device,
                  [&](int c) { return blockOf(all, parts[0], worldRank(), parts[1], c); });
}

template <class T>
HostCsr<T> productOf(const HostCsr<T>& a, const HostCsr<T>& b) {
  return HostCsr<T>::build(a.rows, b.cols, [&](int i, HostCsr<T>& out) {
    for (const auto& [k, u] : a.row(i)) {
      for (const auto& [j, v] : b.row(k)) out.accumulate(j, v * u);
    }
  });
}

/// alpha A + beta B, with the rows in order of the columns.
template <class T>
HostCsr<T> sumOf(T alpha, const HostCsr<T>& a, T beta, const HostCsr<T>& b) {
  return HostCsr<T>::build(a.rows, a.cols,
                           [&](int i, HostCsr<T>& out) {
                             for (const auto& [j, v] : a.row(i)) out.accumulate(j, alpha * v);
                             for (const auto& [j, v] : b.row(i)) out.accumulate(j, beta * v);
                           })
      .sorted();
}

/// The sum over p of A_p B_pc, added up in block order.
template <class T>
HostCsr<T> productBlock(const HostCsr<T>& a, const Part& rows, const HostCsr<T>& b,
                        const Part& inner, const Part& cols, int c) {
  HostCsr<T> sum = HostCsr<T>::build(rows.getLocalSizeForPart(worldRank()),
                                     cols.getLocalSizeForPart(c), [](int, HostCsr<T>&) {});
  for (int p = 0; p < worldSize(); ++p) {
    const auto term =
        productOf(blockOf(a, rows, worldRank(), inner, p), blockOf(b, inner, p, cols, c));
    if (term.values.empty()) continue;
    sum = sum.values.empty() ? term : sumOf(T(1), sum, T(1), term);
  }
  return sum;
}

/// Calls work(device, cut of n0, cut of n1, ...) for partitions of each kind beside each other.
template <class Work>
void forCuts(const std::vector<long>& sizes, std::mt19937& rng, const Work& work) {
  std::vector<std::vector<Part>> cuts;
  for (const long n : sizes) cuts.push_back(worldCuts<long>(n, rng));
  for (std::size_t k = 0; k < 5; ++k) {
    std::vector<Part> chosen;
    for (std::size_t s = 0; s < sizes.size(); ++s) chosen.push_back(cuts[s][(k + k / 4 * s) % 4]);
    for (const Device& device : rankDevices()) {
      SCOPED_TRACE(device.getString() + ", cut " + std::to_string(k));
      work(device, chosen);
    }
  }
}

/// Sorted rows, as an assembly leaves them.
template <class T>
HostCsr<T> sortedRandom(std::mt19937& rng, int rows, int cols) {
  return randomCsr<T>(rng, rows, cols).sorted();
}

template <class T>
class AlgebraOverRanks : public testing::Test {};
using ValueTypes = testing::Types<int, long, float, double, Complex<float>, Complex<double>>;
TYPED_TEST_SUITE(AlgebraOverRanks, ValueTypes);

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
    forCuts({m, n, k}, rng, [&, &n = n](const Device& device, const std::vector<Part>& parts) {
      const auto A = spread(device, parts[0], parts[1], a);
      const auto B = spread(device, parts[1], parts[2], b);
      Matrix<T> C;
      A.multiply(B, C);
      expectBlocks<T>(C, parts[0], parts[2], device,
                      [&](int c) { return productBlock(a, parts[0], b, parts[1], parts[2], c); });
      EXPECT_GT(n, 0);
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
      auto At = spread(device, parts[0], parts[1], a).transpose();
      if (device.type != Device::kHost) At.sortRows();
      expectWhole(At, {parts[1], parts[0]}, device, turned);
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
    forCuts({m, n}, rng, [&, &m = m, &n = n](const Device& device, const std::vector<Part>& parts) {
      const auto A = spread(device, parts[0], parts[1], a);
      const auto B = spread(device, parts[0], parts[1], b);
      const auto expect = [&](const Matrix<T>& X, const HostCsr<T>& all) {
        expectWhole(X, parts, device, all);
      };
      Matrix<T> out;
      Matrix<T>::matadd(alpha, A, beta, B, out);
      expect(out, sumOf(alpha, a, beta, b));
      expect(A.sparsify(T(2)), a.filtered([](int, int, const T& v) { return abs(v) > R(2); }));
      expect(A.sparsify(T(0)), a.filtered([](int, int, const T& v) { return v != T(0); }));

      auto scaled = A.deepCopy();
      scaled.matmul_aDA(alpha, ownColumn(device, parts[0], rows), out);
      const auto times = [&](const auto& factor) {
        return HostCsr<T>::build(m, n, [&](int i, HostCsr<T>& to) {
          for (const auto& [j, v] : a.row(i)) to.push(j, v * (factor(i, j) * alpha));
        });
      };
      const auto byRow = times([&](int i, int) { return rows[static_cast<std::size_t>(i)]; });
      expect(out, byRow);
      expect(scaled, byRow);
      EXPECT_EQ(out.getLocalMatrix(0).getValues(), scaled.getLocalMatrix(0).getValues());
      scaled = A.deepCopy();
      scaled.matmul_aAD(alpha, ownColumn(device, parts[1], cols), out);
      const auto byCol = times([&](int, int j) { return cols[static_cast<std::size_t>(j)]; });
      expect(out, byCol);
      expect(scaled, byCol);
      expect(A, a);
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
    const int diagonals = std::min(m, n);
    const auto random = sortedRandom<T>(rng, m, n);
    const auto full = HostCsr<T>::build(m, n, [&](int i, HostCsr<T>& to) {
      bool found = i >= diagonals;
      for (const auto& [j, v] : random.row(i)) {
        if (j > i && !found) to.push(i, T(5));
        found = found || j >= i;
        to.push(j, v);
      }
      if (!found) to.push(i, T(5));
    });
    const auto d1 = smallVector<T>(rng, static_cast<std::size_t>(m));
    const auto d2 = smallVector<T>(rng, static_cast<std::size_t>(m));
    forCuts({m, n}, rng, [&, &m = m, &n = n](const Device& device, const std::vector<Part>& parts) {
      const bool alike = m == n && parts[0] == parts[1];
      const auto& a = alike ? random : full;
      const auto A = spread(device, parts[0], parts[1], a);
      for (const int given : {0, 1, 2, 3}) {
        const bool first = given % 2 > 0, second = given / 2 > 0;
        const auto v1 = first ? ownColumn(device, parts[0], d1) : ParMatrixT<T, long, int>();
        const auto v2 = second ? ownColumn(device, parts[0], d2) : ParMatrixT<T, long, int>();
        Matrix<T> out;
        Matrix<T>::axpbyDiag(alpha, v1, beta, v2, A, out);
        const auto expected = HostCsr<T>::build(m, n, [&](int i, HostCsr<T>& to) {
          const std::size_t at = static_cast<std::size_t>(i);
          const T added = first ? alpha * d1[at] : T(0);
          bool found = i >= diagonals;
          for (const auto& [j, v] : a.row(i)) {
            found = found || j == i;
            to.push(j, j == i ? beta * (second ? d2[at] : T(1)) * v + added : v);
          }
          if (!found) to.push(i, added);
        });
        expectWhole(out, parts, device, expected);
      }
      expectWhole(A, parts, device, a);
    });
  }
}

TEST(AlgebraOverRanksOnce, ProductsAreAssociativeAndTransposesTurnThemRound) {
  using T = Complex<float>;
  std::mt19937 rng(29);
  forCuts({14, 9, 21, 6}, rng, [&](const Device& device, const std::vector<Part>& parts) {
    const auto A = spread(device, parts[0], parts[1], randomCsr<T>(rng, 14, 9));
    const auto B = spread(device, parts[1], parts[2], randomCsr<T>(rng, 9, 21));
    const auto C = spread(device, parts[2], parts[3], randomCsr<T>(rng, 21, 6));
    EXPECT_TRUE(A.multiply(B).multiply(C) == A.multiply(B.multiply(C)));
    EXPECT_TRUE(A.multiply(B).transpose() == B.transpose().multiply(A.transpose()));
    EXPECT_TRUE(A.transpose().transpose() == A);
    // A result may be an operand.
    auto X = B;
    A.multiply(X, X);
    X.transpose(X);
    Matrix<T>::matadd(T(1), X, T(-1), A.multiply(B).transpose(), X);
    for (const auto& entry : ownEntries(X)) EXPECT_EQ(entry.second, T(0));
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
      const auto R = spread(device, parts[0], parts[1], r);
      const auto A = spread(device, parts[1], parts[2], a);
      const auto P = spread(device, parts[2], parts[3], p);
      Matrix<T> C;
      Matrix<T>::multiplyTriple(R, A, P, C);
      const auto expected = R.multiply(A).multiply(P);
      EXPECT_EQ(C.getNnzs(), expected.getNnzs());
      EXPECT_TRUE(C == expected);
    });
  }
}

TEST(AlgebraOverRanksOnce, StructureForAnotherTypeBringsItsPlanAlong) {
  using T = double;
  std::mt19937 rng(47);
  const auto a = sortedRandom<T>(rng, 17, 17);
  forCuts({17, 17}, rng, [&](const Device& device, const std::vector<Part>& parts) {
    auto A = spread(device, parts[0], parts[1], a);
    for (const bool prepared : {false, true}) {
      if (prepared) A.prepareMatVec(false);
      Matrix<float> S;
      A.copyStructure(S);
      S.fill(2.0F);
      const auto x = ownColumn(device, parts[1], std::vector<float>(17, 3.0F));
      ParMatrixT<float, long, int> y;
      const MessageSpy& spy = MessageSpy::start();
      S.matVec(x, y, nullptr);
      EXPECT_EQ(spy.alltoalls, prepared ? 0 : 1);
      std::vector<float> expected;
      for (int i = 0; i < 17; ++i) {
        expected.push_back(6.0F * static_cast<float>(a.row(i).size()));
      }
      EXPECT_EQ(test::valuesOf(y.getLocalMatrix()), test::ownPart(parts[0], expected));
    }
  });
}

// Beside the numbers that tell of the blocks, which are fewer than 5 and their row pointers each.
TEST(AlgebraOverRanksOnce, ProductShipsTheRowsAskedForAndNoOthers) {
  std::mt19937 rng(59);
  const int m = 6, n = 90, k = 30;
  const auto a = sortedRandom<double>(rng, m, n), b = sortedRandom<double>(rng, n, k);
  forCuts({m, n, k}, rng, [&](const Device& device, const std::vector<Part>& parts) {
    const auto A = spread(device, parts[0], parts[1], a);
    const auto B = spread(device, parts[1], parts[2], b);
    A.prepareMatVec(false);
    const int rank = worldRank(), rows = parts[1].getLocalSizeForPart(rank);
    const MessageSpy& spy = MessageSpy::start();
    A.multiply(B);
    EXPECT_EQ(spy.alltoalls, 1);
    for (const Message& message : spy.sent) {
      const auto asks = blockOf(a, parts[0], message.peer, parts[1], rank).transposed();
      int bytes = 4 + 4 * (rows + 5) * (asks.values.empty() ? 0 : worldSize());
      for (int i = 0; i < rows; ++i) {
        const int row = static_cast<int>(first(parts[1], rank)) + i;
        if (!asks.row(i).empty()) bytes += 12 * static_cast<int>(b.row(row).size());
      }
      EXPECT_LE(message.bytes, bytes) << "to rank " << message.peer;
    }
  });
}

TEST(AlgebraOverRanksOnce, EmptyMatricesTakePartInEverything) {
  for (const Device& device : rankDevices()) {
    Matrix<double> A, none, out;
    A.create(6, 9, device);
    none.create(0, 4, device);
    EXPECT_EQ(A.multiply(A.transpose()).getNnzs(), 0);
    EXPECT_EQ(A.transpose().getRows(), 9);
    EXPECT_EQ(A.transpose().getCols(), 6);
    EXPECT_EQ(none.multiply(none).getRows(), 0);
    EXPECT_EQ(none.transpose().getRows() + none.transpose().getCols(), 0);
    Matrix<double>::matadd(1, A, 1, A, out);
    EXPECT_EQ(out.getNnzs() + A.sparsify(0).getNnzs() + none.sparsify(0).getNnzs(), 0);
    EXPECT_EQ(none.gather(0).getRows() + A.gather(0).getRows(), 0);
    ParMatrixT<double, long, int> d(6, device), e(9, device);
    d.fill(2.0);
    e.fill(2.0);
    A.matmul_aDA(1, d, out);
    A.matmul_aAD(1, e, out);
    EXPECT_EQ(out.getNnzs(), 0);
    // A diagonal appears where there was no block.
    Matrix<double> square;
    square.create(6, 6, device);
    Matrix<double>::axpbyDiag(3, d, 1, {}, square, out);
    EXPECT_EQ(out.getNnzs(), 6);
    EXPECT_EQ(test::valuesOf(out.getDiag().getLocalMatrix()),
              std::vector<double>(static_cast<std::size_t>(out.getLocalRows()), 6.0));

    out.tagName = "coarse";
    const auto top = out.rowTopK(2);
    EXPECT_EQ(top.getNnzs(), 0);
    EXPECT_EQ(top.getRowPartitioner(), out.getRowPartitioner());
    EXPECT_EQ(top.tagName, "coarse");
  }
}

}  // namespace
}  // namespace mivo
