// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <random>
#include <sstream>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo {
namespace {

using test::columnOf;
using test::HostCsr;
using test::matrixOf;
using test::parSparseOf;
using test::partsAt;
using test::plainRows;
using test::testDevices;
using test::valuesOf;

template <class T>
using Plan = SpMVCommPatternT<T, long, int>;
template <class T>
using Vector = ParMatrixT<T, long, int>;

template <class T>
class SpMVCommPatternTest : public testing::Test {};
using ValueTypes = testing::Types<int, long, float, double, Complex<float>, Complex<double>>;
TYPED_TEST_SUITE(SpMVCommPatternTest, ValueTypes);

/// The 2 by 2 matrix {1 2; . 3}.
template <class T>
ParCSRMatrixT<T, long, int> smallMatrix(const Device& device) {
  return parSparseOf(device, plainRows<T>(2, {{{0, T(1)}, {1, T(2)}}, {{1, T(3)}}}));
}

TYPED_TEST(SpMVCommPatternTest, ExchangeOfOneRankOnlyCallsForTheOwnBlock) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    const auto A = smallMatrix<T>(device);
    Plan<T> plan;
    plan.create(A);
    EXPECT_EQ(plan.getDevice(), device);
    EXPECT_EQ(plan.getComm(), kCommWorld);
    const Vector<T> x = columnOf(device, A.getColPartitioner(), std::vector<T>{T(5), T(6)});
    const int tag = Plan<T>::getMessageTag();
    int local = 0, other = 0;
    std::promise<int> armed;
    typename Plan<T>::AsyncMatVecObject async;
    plan.exchange(
        x,
        [&](int procId, typename Plan<T>::SpmvColBlock* block) {
          ++local;
          EXPECT_EQ(procId, 0);
          ASSERT_NE(block, nullptr);
          EXPECT_EQ(block->col_start, 0);
          EXPECT_EQ(block->col_end, 2);
          EXPECT_EQ(block->recv_x.getData(), x.getLocalMatrix().getData());
          EXPECT_EQ(block->nzc_recv_indices.getSize(), 0);
          EXPECT_EQ(block->block, nullptr);
        },
        [&](int, typename Plan<T>::SpmvColBlock*) { ++other; }, [&] { ++other; }, &async);
    EXPECT_EQ(local, 1);
    EXPECT_EQ(other, 0);
    EXPECT_EQ(Plan<T>::getMessageTag(), tag);
    // A handle that was touched would be ready.
    EXPECT_THROW(async.wait(), std::future_error);
    plan.exchange(x, nullptr, nullptr, nullptr, nullptr);
  }
}

TEST(SpMVCommPattern, RankWithoutOwnBlockGetsANullBlock) {
  Plan<double> plan;
  const auto part = partsAt<long>({0, 3});
  plan.create(kCommWorld, Device(), part, {IndexVector()});
  int visited = 0;
  plan.recvTraversal([&](int, Plan<double>::SpmvColBlock*) { ++visited; });
  plan.sendTraversal([&](int, Plan<double>::SpmvSendMeta*) { ++visited; });
  EXPECT_EQ(visited, 0);
  int procId = 7;
  Plan<double>::SpmvColBlock own;
  Plan<double>::SpmvColBlock* block = &own;
  plan.exchange(
      Vector<double>(3, Device()),
      [&](int p, Plan<double>::SpmvColBlock* b) {
        procId = p;
        block = b;
      },
      nullptr, nullptr, nullptr);
  EXPECT_EQ(procId, -1);
  EXPECT_EQ(block, nullptr);
}

TEST(SpMVCommPattern, TagsCountUp) {
  const int tag = Plan<double>::getMessageTag();
  Plan<float>::incMessageTag();
  EXPECT_EQ(Plan<double>::getMessageTag(), tag + 1) << "one counter serves all plans";
}

TYPED_TEST(SpMVCommPatternTest, OwnBlockKeepsTheVectorAndGivesNothingBack) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    const auto A = smallMatrix<T>(device);
    A.prepareMatVec(false);
    const Plan<T>& planOfA = A.getSpMVCommPattern();
    Plan<T> plan = planOfA;  // copies share the plan
    const Vector<T> x = columnOf(device, A.getColPartitioner(), std::vector<T>{T(5), T(6)});
    A.exchangeMatVec(x, nullptr, nullptr, nullptr, nullptr);
    plan.recvTraversal(
        [](int, typename Plan<T>::SpmvColBlock* b) { EXPECT_NE(b->block, nullptr); });

    // The own block has no ghost values to fill.
    plan.fill(T(9));
    EXPECT_EQ(valuesOf(x.getLocalMatrix()), (std::vector<T>{T(5), T(6)}));

    plan.initReverseExchange();
    MatrixT<COT_RawCommPattern<T, int>, int> table;
    plan.getRawMat(table);
    ASSERT_EQ(table.getSize(), 1);
    const COT_RawCommPattern<T, int>& record = table.getData()[0];
    EXPECT_EQ(record.procId, 0);
    EXPECT_EQ(record.recv_x_size, 2);
    EXPECT_EQ(record.nzc_recv_size, 0);
    EXPECT_EQ(record.recv_x, x.getLocalMatrix().getData());
    EXPECT_EQ(record.col_start, 0);
    EXPECT_NE(record.recv_write_flag, nullptr);
    EXPECT_EQ(plan.getRawMatOnDev().getDevice().type, device.type);

    plan.recvTraversal([](int, typename Plan<T>::SpmvColBlock* b) { b->recv_write_flag.fill(1); });
    plan.reverseExchange(x, [](const T& a, const T& b) { return a + b; });
    EXPECT_EQ(valuesOf(x.getLocalMatrix()), (std::vector<T>{T(5), T(6)}));

    // No ghost columns, no ghost rows.
    const auto ghosts = plan.getGhostMatrix(A);
    EXPECT_EQ(ghosts.getRows(), 2);
    EXPECT_EQ(ghosts.getNnz(), 0);

    for (const bool flag : {false, true}) {
      Plan<float> other;
      plan.copyStructure(other, flag);
      EXPECT_EQ(other.getDevice(), device);
      int blocks = 0;
      other.recvTraversal([&](int procId, Plan<float>::SpmvColBlock* b) {
        ++blocks;
        EXPECT_EQ(procId, 0);
        EXPECT_EQ(b->col_end, 2);
        EXPECT_EQ(b->recv_x.getSize(), 0);
        EXPECT_EQ(b->block, nullptr);
      });
      EXPECT_EQ(blocks, 1);
    }
  }
}

TEST(SpMVCommPattern, DumpShowsEachBlock) {
  for (const Device& device : testDevices()) {
    const auto A = smallMatrix<double>(device);
    A.exchangeMatVec(columnOf(device, A.getColPartitioner(), std::vector<double>{5., 6.}), nullptr,
                     nullptr, nullptr, nullptr);
    std::ostringstream os;
    A.getSpMVCommPattern().saveToStream(os, 3);
    EXPECT_EQ(
        os.str(),
        "SpMVCommPattern nprocs 1 myrank 0 nblocks 1\n"
        "  blk 0 procId 0 col_start 0 nzc_recv_indices [] recv_x [5, 6] recv_write_flag []\n");
  }
}

TEST(SpMVCommPattern, WrongArgumentsEndTheProcess) {
  Plan<double> plan;
  MIVO_EXPECT_FATAL_TEXT(plan.create(kCommWorld, Device(), partsAt<long>({0, 3}), {}), "");
  const auto A = smallMatrix<double>(Device());
  plan.create(A);
  const Vector<double> self(2, Device(), kCommSelf), foreign(2, Device(2, 0));
  MIVO_EXPECT_FATAL_TEXT(plan.exchange(self, nullptr, nullptr, nullptr, nullptr),
                         "aAxpby: A and x must have the same comm");
  MIVO_EXPECT_FATAL_TEXT(plan.exchange(foreign, nullptr, nullptr, nullptr, nullptr),
                         "aAxpby: A and x must on the same device");
  MIVO_EXPECT_FATAL_TEXT(
      plan.exchange(foreign.getLocalMatrix(), nullptr, nullptr, nullptr, nullptr),
      "aAxpby: A and x must on the same device");
}

TEST(ReverseData, IsPackedWithoutGaps) {
  const ReverseData<double, int> sent{3, 2.5};
  ASSERT_EQ(sent.getStreamSize(), 12);
  comu::Stream stream;
  stream.setCapacity(12);
  sent.packStream(stream);
  EXPECT_EQ(stream.getWritePosition(), 12);
  ReverseData<double, int> received{};
  received.unpackStream(stream);
  EXPECT_EQ(received.index, 3);
  EXPECT_EQ(received.value, 2.5);
}

}  // namespace
}  // namespace mivo
