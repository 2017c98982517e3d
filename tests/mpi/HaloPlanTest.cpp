// SPDX-License-Identifier: Apache-2.0

// The halo plan on several ranks, with MIVO_WAIT_SOME 0 and 1 and with a helper thread: what is the
// same in all of them is compared with the same expectation.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "mivo/utils/Utils.hpp"
#include "tests/support/halo.hpp"
#include "tests/support/message_spy.hpp"

namespace mivo::test {
namespace {

template <class T>
using Plan = SpMVCommPatternT<T, long, int>;
template <class T>
using Vector = ParMatrixT<T, long, int>;

/// Any bits, among them those of NaN.
template <class T>
T bitsAt(long k, unsigned round) {
  std::mt19937_64 rng(static_cast<std::uint64_t>(k) * 64 + round);
  const std::uint64_t bits[2] = {rng(), rng()};
  T out;
  std::memcpy(static_cast<void*>(&out), bits, sizeof(T));
  return out;
}

template <class T>
class HaloPlan : public testing::Test {};
using Types = testing::Types<int, float, Complex<double>>;
TYPED_TEST_SUITE(HaloPlan, Types);

TEST(HaloPlanRun, TakesTheWaitingRoutineFromTheEnvironment) {
  const char* text = std::getenv("MIVO_WAIT_SOME");
  EXPECT_EQ(Utils::isWaitSome(), text == nullptr || std::atoi(text) != 0);
}

TEST(HaloPlanStructure, HasABlockForEachRankWhoseColumnsAreTouchedAndTellsOfIt) {
  using T = double;
  const int rank = worldRank(), size = worldSize();
  forEachSpread<T>([&](const Spread& spread, const Device& device, const auto& A) {
    Plan<T> plan = A.getSpMVCommPattern();
    std::vector<int> owners, readers, expectedOwners, expectedReaders;
    for (int p = 0; p < size; ++p) {
      if (!spread.touched(rank, p).empty()) expectedOwners.push_back(p);
      if (p != rank && !spread.touched(p, rank).empty()) expectedReaders.push_back(p);
    }
    plan.fill(T(9));
    plan.initReverseExchange();
    MatrixT<COT_RawCommPattern<T, int>, int> table;
    plan.getRawMat(table);
    EXPECT_EQ(plan.getRawMatOnDev().getDevice().type, device.type);
    const auto text = [](const auto& m) { return m.toDevice(Device()).getString(); };
    std::ostringstream expected, dump;
    expected << "SpMVCommPattern nprocs " << size << " myrank " << rank << " nblocks "
             << table.getSize() << "\n";
    plan.recvTraversal([&](int p, typename Plan<T>::SpmvColBlock* block) {
      const COT_RawCommPattern<T, int>& record = table.getData()[owners.size()];
      expected << "  blk " << owners.size() << " procId " << p << " col_start " << block->col_start
               << " nzc_recv_indices " << text(block->nzc_recv_indices) << " recv_x "
               << text(block->recv_x) << " recv_write_flag " << text(block->recv_write_flag)
               << "\n";
      owners.push_back(p);
      const std::vector<int> needed = p == rank ? std::vector<int>() : spread.touched(rank, p);
      const int ghosts = p == rank ? 0 : spread.size(spread.cols, p);
      EXPECT_EQ(block->col_start, spread.first(spread.cols, p));
      EXPECT_EQ(block->col_end, spread.first(spread.cols, p + 1));
      EXPECT_EQ(valuesOf(block->nzc_recv_indices), needed);
      EXPECT_EQ(valuesOf(block->host_indices), needed);
      EXPECT_EQ(block->host_recv_buffer.getSize(), static_cast<int>(needed.size()));
      EXPECT_EQ(valuesOf(block->recv_x), std::vector<T>(static_cast<std::size_t>(ghosts), T(9)));
      EXPECT_EQ(valuesOf(block->recv_write_flag),
                std::vector<int>(static_cast<std::size_t>(ghosts), 0));
      EXPECT_TRUE(p == rank || block->recv_x.getDevice().type == device.type);
      EXPECT_NE(block->block, nullptr);
      EXPECT_EQ(record.procId, p);
      EXPECT_EQ(record.recv_x_size, ghosts);
      EXPECT_EQ(record.nzc_recv_size, static_cast<int>(needed.size()));
      EXPECT_EQ(record.recv_x, block->recv_x.getData());
      EXPECT_EQ(record.col_start, block->col_start);
      EXPECT_EQ(record.recv_write_flag, block->recv_write_flag.getData());
    });
    plan.sendTraversal([&](int q, typename Plan<T>::SpmvSendMeta* meta) {
      expected << "  blk " << readers.size() << " procId " << q << " nzc_send_indices "
               << meta->host_indices.getString() << " send_x " << meta->send_x.getString() << "\n";
      readers.push_back(q);
      EXPECT_EQ(valuesOf(meta->nzc_send_indices), spread.touched(q, rank));
      EXPECT_EQ(valuesOf(meta->host_indices), spread.touched(q, rank));
      EXPECT_EQ(meta->nzc_send_indices.getDevice().type, device.type);
    });
    EXPECT_EQ(owners, expectedOwners);
    EXPECT_EQ(readers, expectedReaders);
    plan.saveToStream(dump, 3);
    EXPECT_EQ(dump.str(), expected.str());
  });
}

/// Exchanges x and looks at the messages, the calls and what the blocks hold then.
template <class T>
void expectExchange(const Spread& spread, const Device& device, const Plan<T>& given,
                    unsigned round) {
  const int rank = worldRank(), size = worldSize();
  Plan<T> plan = given;
  const auto at = [&](long k) { return bitsAt<T>(k, round); };
  const Vector<T> x = spreadColumn<T>(spread.cols, device, at);
  const int tag = Plan<T>::getMessageTag();
  std::vector<Message> sent, opened;
  std::vector<int> inRankOrder;
  for (int p = 0; p < size; ++p) {
    if (p == rank) continue;
    const std::size_t out = spread.touched(p, rank).size(), in = spread.touched(rank, p).size();
    if (out > 0) sent.push_back({p, static_cast<int>(out * sizeof(T)), tag});
    if (in > 0) opened.push_back({p, static_cast<int>(in * sizeof(T)), tag});
    if (in > 0) inRankOrder.push_back(p);
  }

  std::vector<int> local, received;
  int finished = 0;
  const auto main = std::this_thread::get_id();
  const MessageSpy& spy = MessageSpy::start();
  Async<T> async;
  plan.exchange(
      x,
      [&](int p, typename Plan<T>::SpmvColBlock* block) {
        local.push_back(p);
        EXPECT_TRUE(received.empty() && finished == 0);
        EXPECT_EQ(spy.sent, sent) << "the local part runs while the messages travel";
        EXPECT_EQ(spy.opened, opened);
        EXPECT_EQ(std::this_thread::get_id(), main);
        EXPECT_EQ(block == nullptr, p == -1);
        if (block == nullptr) return;
        EXPECT_EQ(block->recv_x.getData(), x.getLocalMatrix().getData());
      },
      [&](int p, typename Plan<T>::SpmvColBlock* block) {
        received.push_back(p);
        EXPECT_EQ(finished, 0);
        EXPECT_EQ(std::this_thread::get_id() != main, helperThread);
        // All needed entries are there, and no other has been touched.
        std::vector<T> expected(static_cast<std::size_t>(spread.size(spread.cols, p)), T(0));
        for (const int j : spread.touched(rank, p)) {
          expected[static_cast<std::size_t>(j)] = at(spread.first(spread.cols, p) + j);
        }
        const std::vector<T> got = valuesOf(block->recv_x);
        ASSERT_EQ(got.size(), expected.size());
        EXPECT_EQ(std::memcmp(got.data(), expected.data(), got.size() * sizeof(T)), 0) << p;
      },
      [&] { ++finished; }, async.get());
  async.wait();
  EXPECT_EQ(local, std::vector<int>{spread.touched(rank, rank).empty() ? -1 : rank});
  if (Utils::isWaitSome()) std::sort(received.begin(), received.end());
  EXPECT_EQ(received, inRankOrder);
  EXPECT_EQ(finished, size > 1 ? 1 : 0);
  EXPECT_EQ(spy.sent, sent);
  EXPECT_EQ(spy.opened, opened);
  EXPECT_EQ(spy.alltoalls, 0);
  EXPECT_EQ(Plan<T>::getMessageTag(), size > 1 ? tag + 1 : tag);
  plan.fill(T(0));
  expectSameBits(valuesOf(x), valuesOf(spreadColumn<T>(spread.cols, device, at)));
}

TYPED_TEST(HaloPlan, ExchangeMovesTheNeededEntriesAndNoOthers) {
  using T = TypeParam;
  forEachSpread<T>([&](const Spread& spread, const Device& device, const auto& A) {
    for (unsigned round = 0; round < 2; ++round) {
      expectExchange(spread, device, A.getSpMVCommPattern(), round);
    }
  });
}

TEST(HaloPlanStructure, CopyForAnotherTypeExchangesAlike) {
  using T = double;
  forEachSpread<T>([&](const Spread& spread, const Device& device, const auto& A) {
    Plan<float> copy, own;
    Plan<Complex<double>> wide;
    A.getSpMVCommPattern().copyStructure(copy, true);
    A.getSpMVCommPattern().copyStructure(wide, false);
    own.create(A);
    const int tag = Plan<T>::getMessageTag();
    expectExchange(spread, device, copy, 0);
    expectExchange(spread, device, wide, 1);
    expectExchange(spread, device, own, 2);
    EXPECT_EQ(Plan<T>::getMessageTag(), worldSize() > 1 ? tag + 3 : tag) << "one counter for all";
  });
}

// Rank 0 joins only when rank 1 has been handed the block of rank 2 or, where that waits for rank
// 0, after it has come.
TEST(HaloPlanOrder, BlocksAreHandedOnAsTheyArriveOrInRankOrderByCopiesToo) {
  const int rank = worldRank(), size = worldSize();
  const Spread spread = {"dense", evenly(size, size), evenly(size, size),
                         [](long, long) { return true; }};
  const auto A = spreadMatrix<double>(spread, Device());
  A.prepareMatVec(false);
  Plan<double> copy;
  A.getSpMVCommPattern().copyStructure(copy, true);
  const Vector<double> x = spreadColumn<double>(spread.cols, Device(), [](long) { return 1.; });
  const bool staged = Utils::isWaitSome() && size >= 3;
  for (Plan<double> plan : {A.getSpMVCommPattern(), copy}) {
    int word = 0;
    MPI_Request request = MPI_REQUEST_NULL;
    MPI_Status status;
    if (staged && rank == 0) {
      MPI_Irecv(&word, 1, MPI_INT, 1, 40000, kCommWorld, &request);
      MPI_Wait(&request, &status);
    } else if (rank == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::vector<int> order;
    Async<double> async;
    plan.exchange(
        x, nullptr,
        [&](int p, Plan<double>::SpmvColBlock*) {
          order.push_back(p);
          if (!staged || rank != 1 || p != 2) return;
          MPI_Isend(&word, 1, MPI_INT, 0, 40000, kCommWorld, &request);
        },
        nullptr, async.get());
    async.wait();
    if (staged && rank == 1) {
      MPI_Wait(&request, &status);
      EXPECT_NE(order.front(), 0);
    }
    EXPECT_EQ(order.size(), static_cast<std::size_t>(size - 1));
    EXPECT_TRUE(Utils::isWaitSome() || std::is_sorted(order.begin(), order.end()));
  }
}

}  // namespace
}  // namespace mivo::test
