// SPDX-License-Identifier: Apache-2.0

// What goes the other way: ghost values to their owners, and rows of the matrix to those who read
// their columns.

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/halo.hpp"
#include "tests/support/message_spy.hpp"

namespace mivo::test {
namespace {

template <class T>
using Plan = SpMVCommPatternT<T, long, int>;

template <class T>
class HaloReverse : public testing::Test {};
using ValueTypes = testing::Types<int, Complex<double>>;
TYPED_TEST_SUITE(HaloReverse, ValueTypes);

/// Which ghost entries of rank `reader` are marked as written; no matter whether the product needs
/// them.
bool isFlagged(int reader, int k) { return (reader + k) % 2 == 0; }
bool nothingFlagged(int, int) { return false; }
using Flagged = bool (*)(int reader, int k);

template <class T>
T ghostAt(int reader, int k) {
  return T(static_cast<RealType<T>>(1 + 3 * reader + k));
}

template <class T>
void writeTo(const MatrixT<T, int>& m, const std::vector<T>& values) {
  Device().rawCopyTo(values.size() * sizeof(T), values.data(), m.getDevice(), m.getData());
}

/// Writes all ghost entries of the plan, of which some are marked; those of the own block, which
/// are the vector's, must stay where they are.
template <class T>
void writeGhosts(const Spread& spread, Plan<T>& plan, Flagged flagged) {
  const int rank = worldRank();
  plan.initReverseExchange();
  plan.recvTraversal([&](int p, typename Plan<T>::SpmvColBlock* block) {
    if (p == rank) return block->recv_write_flag.fill(1);
    std::vector<T> values;
    std::vector<int> flags;
    for (int k = 0; k < spread.size(spread.cols, p); ++k) {
      values.push_back(ghostAt<T>(rank, k));
      flags.push_back(flagged(rank, k) ? 1 : 0);
    }
    writeTo(block->recv_x, values);
    writeTo(block->recv_write_flag, flags);
  });
}

/// Where this rank owns the entry k, the ranks that send a value for it, in order.
std::vector<int> sendersOf(const Spread& spread, int k, Flagged flagged) {
  const int rank = worldRank();
  std::vector<int> out;
  for (int r = 0; r < worldSize(); ++r) {
    if (r != rank && !spread.touched(r, rank).empty() && flagged(r, k)) out.push_back(r);
  }
  return out;
}

/// One message to each other rank: the count, then index and value without a gap.
template <class T>
std::vector<Message> messages(const Spread& spread, Flagged flagged, bool sent) {
  const int rank = worldRank();
  std::vector<Message> out;
  for (int p = 0; p < worldSize(); ++p) {
    if (p == rank) continue;
    const int reader = sent ? rank : p, owner = sent ? p : rank;
    int count = 0;
    for (int k = 0; k < spread.size(spread.cols, owner); ++k) {
      if (!spread.touched(reader, owner).empty() && flagged(reader, k)) ++count;
    }
    out.push_back({p, 4 + count * static_cast<int>(sizeof(int) + sizeof(T)), 0});
  }
  return out;
}

TYPED_TEST(HaloReverse, SendsTheFlaggedEntriesToTheirOwnersInRankOrder) {
  using T = TypeParam;
  const int rank = worldRank();
  // Depends on the order of the values.
  const auto reduce = [](const T& a, const T& b) { return a + a + b; };
  forEachSpread<T>([&](const Spread& spread, const Device& device, const auto& A) {
    Plan<T> plan = A.getSpMVCommPattern();
    for (const Flagged flagged : {&isFlagged, &nothingFlagged}) {
      for (const bool masked : {true, false}) {
        const auto x = spreadColumn<T>(spread.cols, device, [](long) { return T(1); });
        plan.exchange(x, nullptr, nullptr, nullptr, nullptr);
        writeGhosts(spread, plan, flagged);
        const auto mask = spreadColumn<int>(spread.cols, device, [](long k) { return int(k); });
        const MessageSpy& spy = MessageSpy::start();
        if (masked) {
          plan.reverseExchange(x, mask, reduce, [](const int& a, const int& b) {
            EXPECT_EQ(b, 1);
            return 10 * a + b;
          });
        } else {
          plan.reverseExchange(x, reduce);
        }
        EXPECT_EQ(spy.sent, messages<T>(spread, flagged, true));
        EXPECT_EQ(spy.opened, messages<T>(spread, flagged, false));

        std::vector<T> values;
        std::vector<int> flags;
        for (int k = 0; k < spread.size(spread.cols, rank); ++k) {
          values.push_back(T(1));
          flags.push_back(static_cast<int>(spread.first(spread.cols, rank)) + k);
          for (const int r : sendersOf(spread, k, flagged)) {
            values.back() = reduce(values.back(), ghostAt<T>(r, k));
            if (masked) flags.back() = 10 * flags.back() + 1;
          }
        }
        EXPECT_EQ(valuesOf(x), values);
        EXPECT_EQ(valuesOf(mask), flags);
      }
    }
  });
}

/// The rows that the ghost columns of this rank name, at their global numbers.
template <class T>
std::vector<T> ghostRows(const Spread& spread) {
  const int rank = worldRank();
  const std::size_t n = static_cast<std::size_t>(spread.cols.back());
  std::vector<T> out(n * n, T(0));
  for (int p = 0; p < worldSize(); ++p) {
    if (p == rank) continue;
    for (const int k : spread.touched(rank, p)) {
      const long i = spread.first(spread.cols, p) + k;
      for (long j = 0; j < spread.cols.back(); ++j) {
        if (spread.stored(i, j)) {
          out[static_cast<std::size_t>(i) * n + static_cast<std::size_t>(j)] = entryAt<T>(i, j);
        }
      }
    }
  }
  return out;
}

template <class T>
void expectGhostRows(const Spread& spread, const CSRMatrixT<T, int>& rows) {
  const std::vector<T> expected = ghostRows<T>(spread);
  EXPECT_EQ(rows.getNnz() > 0, expected != std::vector<T>(expected.size(), T(0)));
  if (rows.getNnz() == 0) return;
  EXPECT_EQ(rows.getRows(), static_cast<int>(spread.rows.back()));
  EXPECT_EQ(rows.getCols(), static_cast<int>(spread.cols.back()));
  EXPECT_EQ(plainOf(rows).dense(), expected);
}

TEST(HaloGhostMatrix, HasTheRowsThatTheGhostColumnsName) {
  forEachSpread<double>([&](const Spread& spread, const Device& device, const auto& A) {
    if (!spread.isSquare()) return;
    const auto whole = spreadMatrix<int>(spread, device);
    const Plan<double>& plan = A.getSpMVCommPattern();
    const auto rows = plan.getGhostMatrix(A);
    EXPECT_TRUE(rows.getNnz() == 0 || rows.getDevice().type == device.type);
    expectGhostRows(spread, rows);
    // The plan serves a matrix of other values with the same pattern.
    expectGhostRows(spread, plan.getGhostMatrix(whole));
  });
}

}  // namespace
}  // namespace mivo::test
