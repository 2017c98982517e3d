// SPDX-License-Identifier: Apache-2.0

// Products as the users of halo plans: several matrices, and changes of a matrix.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/halo.hpp"
#include "tests/support/message_spy.hpp"

namespace mivo::test {
namespace {

using Vector = ParMatrixT<double, long, int>;
using Matrix = ParSparse<double>;

/// A x with x_k = k + start, against the sums over the pattern.
void expectProduct(const Spread& spread, const Matrix& A, double start) {
  const auto x = spreadColumn<double>(spread.cols, A.getDevice(),
                                      [&](long k) { return static_cast<double>(k) + start; });
  Vector y;
  Async<double> async;
  A.matVec(x, y, async.get());
  async.wait();
  std::vector<double> expected;
  for (long i = spread.first(spread.rows, worldRank());
       i < spread.first(spread.rows, worldRank() + 1); ++i) {
    expected.push_back(0);
    for (long j = 0; j < spread.cols.back(); ++j) {
      if (spread.stored(i, j)) {
        expected.back() += entryAt<double>(i, j) * (static_cast<double>(j) + start);
      }
    }
  }
  EXPECT_EQ(valuesOf(y), expected);
}

Spread spreadNamed(const std::string& name) {
  for (const Spread& spread : spreads()) {
    if (spread.name == name) return spread;
  }
  ADD_FAILURE() << name;
  return {};
}

// Without a barrier, so that a fast rank is ahead of the others by a product.
TEST(HaloProduct, TwoMatricesInTurnDoNotMixTheirMessages) {
  for (const Device& device : testDevices()) {
    Spread first = spreadNamed("neighbours"), second = first;
    second.stored = [](long i, long j) { return (i + 2 * j) % 3 == 0; };
    const Matrix A = spreadMatrix<double>(first, device), B = spreadMatrix<double>(second, device);
    A.prepareMatVec(false);
    B.prepareMatVec(false);
    int tag = SpMVCommPatternT<double, long, int>::getMessageTag();
    const MessageSpy& spy = MessageSpy::start();
    std::size_t seen = 0;
    for (int round = 0; round < 20; ++round) {
      expectProduct(round % 2 == 0 ? first : second, round % 2 == 0 ? A : B, round);
      for (; seen < spy.sent.size(); ++seen) EXPECT_EQ(spy.sent[seen].tag, tag);
      ++tag;
    }
    EXPECT_EQ(spy.alltoalls, 0) << "plans are made once";
  }
}

TEST(HaloProduct, PlanFollowsAChangeOfTheMatrix) {
  const int last = worldSize() - 1;
  for (const Device& device : testDevices()) {
    Spread spread = spreadNamed("neighbours");
    const Spread before = spread;
    Matrix A = spreadMatrix<double>(spread, device);
    expectProduct(spread, A, 1);
    const Matrix copy = A.deepCopy(), moved = A.toDevice(device);

    // Only the last rank's rows change, and it alone has new ghosts.
    const long changed = spread.first(spread.rows, last);
    spread.stored = [=](long i, long j) { return i >= changed || before.stored(i, j); };
    if (worldRank() == last) A.setLocalMatrix(blocksOf<double>(spread, device));
    A.prepareMatVec(true);
    expectProduct(spread, A, 2);
    expectProduct(before, copy, 3);
    expectProduct(before, moved, 4);

    // A new assembly, in which other ranks set the entries.
    spread.stored = [](long i, long j) { return (i * j) % 5 == 1 || i == j; };
    A.beginAssemble();
    for (long i = 0; i < spread.rows.back(); ++i) {
      if (i % worldSize() != worldRank()) continue;
      for (long j = 0; j < spread.cols.back(); ++j) {
        if (spread.stored(i, j)) A.setValue(i, j, entryAt<double>(i, j), SetValueMode::Set);
      }
    }
    A.endAssemble();
    expectProduct(spread, A, 5);
  }
}

// Each rank has its own device number, and some of them have it already.
TEST(HaloProduct, PlanIsMadeAnewByAllRanksWhenOnlySomeChangeTheirDevice) {
  const Spread spread = spreadNamed("neighbours");
  Matrix A = spreadMatrix<double>(spread, Device());
  expectProduct(spread, A, 1);
  A.setDevice(Device(Device::kHost, worldRank()));
  expectProduct(spread, A, 2);
}

}  // namespace
}  // namespace mivo::test
