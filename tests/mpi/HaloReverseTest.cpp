// SPDX-License-Identifier: Apache-2.0

// What goes the other way: ghost values to their owners, and rows of the matrix to those who read
// their columns.

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "tests/support/halo.hpp"
#include "tests/support/message_spy.hpp"

namespace mivo::test {
namespace {

template <class T>
class HaloReverse : public testing::Test {};
using Types = testing::Types<int, Complex<double>>;
TYPED_TEST_SUITE(HaloReverse, Types);

template <class T>
T ghostAt(int reader, int k) {
  return T(static_cast<RealType<T>>(1 + 3 * reader + k));
}

template <class T>
void writeTo(const MatrixT<T, int>& m, const std::vector<T>& values) {
  Device().rawCopyTo(values.size() * sizeof(T), values.data(), m.getDevice(), m.getData());
}

// Every second ghost entry is marked as written, no matter whether the product needs it, or none.
TYPED_TEST(HaloReverse, SendsTheFlaggedEntriesToTheirOwnersInRankOrder) {
  using T = TypeParam;
  using Plan = SpMVCommPatternT<T, long, int>;
  const int rank = worldRank();
  // Depends on the order of the values.
  const auto reduce = [](const T& a, const T& b) { return a + a + b; };
  forEachSpread<T>([&](const Spread& spread, const Device& device, const auto& A) {
    Plan plan = A.getSpMVCommPattern();
    for (const int variant : {0, 1, 2, 3}) {
      const bool masked = variant % 2 == 0, any = variant < 2;
      const auto isFlagged = [&](int reader, int k) { return any && (reader + k) % 2 == 0; };
      const auto travels = [&](int reader, int owner, int k) {
        return reader != owner && isFlagged(reader, k) && !spread.touched(reader, owner).empty();
      };
      const auto x = spreadColumn<T>(spread.cols, device, [](long) { return T(1); });
      const auto mask = spreadColumn<int>(spread.cols, device, [](long k) { return int(k); });
      plan.exchange(x, nullptr, nullptr, nullptr, nullptr);
      plan.initReverseExchange();
      plan.recvTraversal([&](int p, typename Plan::SpmvColBlock* block) {
        // What is the vector's own stays where it is.
        if (p == rank) return block->recv_write_flag.fill(1);
        std::vector<T> values;
        std::vector<int> flags;
        for (int k = 0; k < spread.size(spread.cols, p); ++k) {
          values.push_back(ghostAt<T>(rank, k));
          flags.push_back(isFlagged(rank, k) ? 1 : 0);
        }
        writeTo(block->recv_x, values);
        writeTo(block->recv_write_flag, flags);
      });
      const MessageSpy& spy = MessageSpy::start();
      if (masked) {
        plan.reverseExchange(x, mask, reduce, [](const int& a, const int& b) {
          EXPECT_EQ(b, 1);
          return 10 * a + b;
        });
      } else {
        plan.reverseExchange(x, reduce);
      }
      // One message to each other rank: the count, then index and value without a gap.
      const auto bytes = [&](int reader, int owner) {
        int count = 0;
        for (int k = 0; k < spread.size(spread.cols, owner); ++k)
          count += travels(reader, owner, k);
        return 4 + count * static_cast<int>(sizeof(int) + sizeof(T));
      };
      std::vector<Message> sent, opened;
      for (int p = 0; p < worldSize(); ++p) {
        if (p == rank) continue;
        sent.push_back({p, bytes(rank, p), 0});
        opened.push_back({p, bytes(p, rank), 0});
      }
      EXPECT_EQ(spy.sent, sent);
      EXPECT_EQ(spy.opened, opened);

      std::vector<T> values;
      std::vector<int> flags;
      for (int k = 0; k < spread.size(spread.cols, rank); ++k) {
        values.push_back(T(1));
        flags.push_back(static_cast<int>(spread.first(spread.cols, rank)) + k);
        for (int r = 0; r < worldSize(); ++r) {
          if (!travels(r, rank, k)) continue;
          values.back() = reduce(values.back(), ghostAt<T>(r, k));
          if (masked) flags.back() = 10 * flags.back() + 1;
        }
      }
      EXPECT_EQ(valuesOf(x), values);
      EXPECT_EQ(valuesOf(mask), flags);
    }
  });
}

/// The rows that the ghost columns of this rank name stand at their global numbers, alone.
template <class T>
void expectGhostRows(const Spread& spread, const CSRMatrixT<T, int>& rows) {
  std::set<long> named;
  for (int p = 0; p < worldSize(); ++p) {
    if (p == worldRank()) continue;
    for (const int k : spread.touched(worldRank(), p))
      named.insert(spread.first(spread.cols, p) + k);
  }
  const auto expected =
      wholeOf<T>(spread).filtered([&](int i, int, const T&) { return named.count(i) > 0; });
  EXPECT_EQ(rows.getNnz() > 0, !expected.values.empty());
  if (rows.getNnz() == 0) return;
  EXPECT_EQ(rows.getCols(), expected.cols);
  EXPECT_EQ(plainOf(rows).dense(), expected.dense());
}

TEST(HaloGhostMatrix, HasTheRowsThatTheGhostColumnsName) {
  forEachSpread<double>([&](const Spread& spread, const Device& device, const auto& A) {
    if (!spread.isSquare()) return;
    const auto& plan = A.getSpMVCommPattern();
    const auto rows = plan.getGhostMatrix(A);
    EXPECT_TRUE(rows.getNnz() == 0 || rows.getDevice().type == device.type);
    expectGhostRows(spread, rows);
    // The plan serves a matrix of other values with the same pattern.
    expectGhostRows(spread, plan.getGhostMatrix(spreadMatrix<int>(spread, device)));
  });
}

}  // namespace
}  // namespace mivo::test
