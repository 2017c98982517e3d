// SPDX-License-Identifier: Apache-2.0

// Products as the users of halo plans: several matrices, and changes of a matrix.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "mivo/utils/Utils.hpp"
#include "tests/support/halo.hpp"
#include "tests/support/message_spy.hpp"
#include "tests/support/poisson.hpp"

// Of the message-passing library alone: libmivo calls neither.
extern "C" int MPI_Comm_dup(int comm, int* copy);
extern "C" int MPI_Comm_split(int comm, int color, int key, int* part);

namespace mivo::test {
namespace {

using Vector = ParMatrixT<double, long, int>;
using Matrix = ParSparse<double>;

/// A x with x_k = k + start, against the sums over the pattern.
void expectProduct(const Spread& spread, const Matrix& A, double start) {
  std::vector<double> x;
  for (long k = 0; k < spread.cols.back(); ++k) x.push_back(static_cast<double>(k) + start);
  const auto whole = wholeOf<double>(spread);
  const auto own = ownColumn(A.getDevice(), A.getColPartitioner(), x);
  const std::vector<double> zero(static_cast<std::size_t>(whole.rows), 0);
  Vector y;
  Async<double> async;
  A.matVec(own, y, async.get());
  async.wait();
  EXPECT_EQ(valuesOf(y),
            ownPart(A.getRowPartitioner(), denseAxpby(whole.dense(), 1., x, 0., zero)));
}

// Without a barrier, so that a fast rank is ahead of the others by a product.
TEST(HaloProduct, TwoMatricesInTurnDoNotMixTheirMessages) {
  for (const Device& device : testDevices()) {
    Spread first = spreads().front(), second = first;
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

// Second differences of squares, on all ranks, on a duplicate, and on either half at the same time.
TEST(HaloProduct, MatricesOfSeveralCommunicatorsDoNotMixTheirMessages) {
  int copy = 0, half = 0;
  MPI_Comm_dup(kCommWorld, &copy);
  MPI_Comm_split(kCommWorld, worldRank() % 2, worldRank(), &half);
  for (const Device& device : testDevices()) {
    std::vector<Matrix> matrices;
    for (const int comm : {kCommWorld, copy, half}) {
      const long n = 11 + 2 * static_cast<long>(matrices.size());
      Matrix A;
      A.create(n, n, device, comm);
      A.beginAssemble();
      long begin = 0, end = 0;
      A.getOwnerShipRange(&begin, &end);
      for (long i = begin; i < end; ++i) {
        for (long j = std::max(i - 1, 0L); j <= std::min(i + 1, n - 1); ++j) {
          A.setValue(i, j, i == j ? 2 : -1, SetValueMode::Set);
        }
      }
      A.endAssemble();
      matrices.push_back(A);
    }
    for (int round = 0; round < 12; ++round) {
      const Matrix& A = matrices[static_cast<std::size_t>(round) % 3];
      long begin = 0, end = 0;
      A.getOwnerShipRange(&begin, &end);
      std::vector<double> squares;
      for (long i = begin; i < end; ++i)
        squares.push_back(static_cast<double>((i + round) * (i + round)));
      Vector x, y;
      x.create(A.getRowPartitioner(), device, A.getComm());
      x.setLocalMatrix({matrixOf<double, int>(device, static_cast<int>(end - begin), 1, squares)});
      Async<double> async;
      A.matVec(x, y, async.get());
      int ranks = 1;
      MPI_Comm_size(A.getComm(), &ranks);
      if (ranks > 1) async.wait();
      const std::vector<double> result = valuesOf(y);
      for (long i = std::max(begin, 1L); i < std::min(end, A.getRows() - 1); ++i) {
        EXPECT_EQ(result[static_cast<std::size_t>(i - begin)], -2) << "round " << round;
      }
    }
  }
}

TEST(HaloProduct, PlanFollowsAChangeOfTheMatrix) {
  const int last = worldSize() - 1;
  for (const Device& device : testDevices()) {
    Spread spread = spreads().front();
    const Spread before = spread;
    Matrix A = spreadMatrix<double>(spread, device);
    expectProduct(spread, A, 1);
    const Matrix copy = A.deepCopy(), moved = A.toDevice(device);

    // Only the last rank's rows change, and it alone has new ghosts.
    const long changed = spread.first(spread.rows, last);
    spread.stored = [=](long i, long j) { return i >= changed || before.stored(i, j); };
    std::vector<CSRMatrixT<double, int>> blocks;
    for (int p = 0; p < worldSize(); ++p) {
      blocks.push_back(spreadMatrix<double>(spread, device).getLocalMatrix(p));
    }
    if (worldRank() == last) A.setLocalMatrix(blocks);
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
  const Spread spread = spreads().front();
  Matrix A = spreadMatrix<double>(spread, Device());
  expectProduct(spread, A, 1);
  A.setDevice(Device(Device::kHost, worldRank()));
  expectProduct(spread, A, 2);
}

// Each rank keeps its part in the memory of its own device, as on a node with a GPU for each rank.
// In order of arrival the last bits of a product with several ghost blocks differ.
TEST(HaloProduct, OnDevicesInRankOrderGivesTheBitsOfTheHost) {
  const Device device = rankDevices().back();  // the same number on all ranks
  if (device == Device() || Utils::isWaitSome()) return;
  const json problem = {{"dim", 3}, {"N", 7}};
  Poisson<double> on_host(problem), on_device(problem, device);
  EXPECT_EQ(on_device.A.getDevice(), device);
  EXPECT_EQ(valuesOf(on_device.b), valuesOf(on_host.b));
  Vector y, z;
  on_host.A.matVec(on_host.b, y, nullptr);
  on_device.A.matVec(on_device.b, z, nullptr);
  EXPECT_EQ(z.getDevice(), device);
  EXPECT_EQ(valuesOf(z), valuesOf(y));
  on_host.A.aAxpby(0.3, on_host.x, -1.7, y, nullptr);
  on_device.A.aAxpby(0.3, on_device.x, -1.7, z, nullptr);
  EXPECT_EQ(valuesOf(z), valuesOf(y));
  const double dot = Vector::dot(on_host.x, y);
  EXPECT_NEAR(Vector::dot(on_device.x, z), dot, 1e-12 * std::abs(dot));
}

}  // namespace
}  // namespace mivo::test
