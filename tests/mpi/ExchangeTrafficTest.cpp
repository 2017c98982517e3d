// SPDX-License-Identifier: Apache-2.0

// What the exchange tools put on the wire.

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/comu/owner_tools.hpp"
#include "mivo/mat/Matrix.hpp"
#include "tests/support/message_spy.hpp"
#include "tests/support/world.hpp"

namespace mivo::test {
namespace {

using Messages = std::vector<Message>;

// Rank r sends to + 1 words to each rank, itself included, from r / 2 on.
TEST(ExchangeTraffic, ListsTravelAsTheirBytesAndOnlyWhereThereAreAny) {
  const int rank = worldRank(), size = worldSize();
  std::vector<std::vector<int>> send(static_cast<std::size_t>(size)), recv;
  Messages sent, opened;
  for (int i = 0; i < size; ++i) {
    if (i >= rank / 2) send[static_cast<std::size_t>(i)].resize(static_cast<std::size_t>(i + 1));
    if (i >= rank / 2 && i != rank) sent.push_back({i, 4 * (i + 1), 0});
    if (rank >= i / 2 && i != rank) opened.push_back({i, 4 * (rank + 1), 0});
  }
  for (const bool sizesKnown : {false, true}) {
    const MessageSpy& spy = MessageSpy::start();
    comu::sparse_send_recv<int>(kCommWorld, send, recv, sizesKnown);
    EXPECT_EQ(spy.alltoalls, sizesKnown ? 0 : 1);
    EXPECT_EQ(spy.sent, sent);
    EXPECT_EQ(spy.opened, opened);
  }
}

// Two words for each id that another rank looks after, there and back; the second leg needs no
// counts.
TEST(ExchangeTraffic, OwnerSearchAsksEachDirectoryRankOnce) {
  const int rank = worldRank(), size = worldSize();
  const std::vector<int> ids(rank == 0 ? 5 : 0, 1);
  std::vector<int> owners;
  const MessageSpy& spy = MessageSpy::start();
  comu::get_owner_rank(kCommWorld, ids, owners);
  EXPECT_EQ(spy.alltoalls, 1);
  Messages sent, opened;
  if (size > 1 && rank <= 1) {
    sent.push_back({1 - rank, 5 * 8, 0});
    opened.push_back({1 - rank, 5 * 8, 0});
  }
  EXPECT_EQ(spy.sent, sent);
  EXPECT_EQ(spy.opened, opened);
}

// An empty object still has its header, here the two dimensions.
TEST(ExchangeTraffic, ObjectsTravelWithTheirHeaderAlsoEmptyOnes) {
  const int rank = worldRank(), size = worldSize();
  std::vector<IndexVector> send(static_cast<std::size_t>(size)), recv;
  send.back().create(3, 1, Device());
  send.back().fill(rank);
  Messages sent, opened;
  for (int i = 0; i < size; ++i) {
    if (i == rank) continue;
    sent.push_back({i, i == size - 1 ? 20 : 8, 0});
    opened.push_back({i, rank == size - 1 ? 20 : 8, 0});
  }
  const MessageSpy& spy = MessageSpy::start();
  comu::sparse_send_recv_stream(kCommWorld, send, recv);
  EXPECT_EQ(spy.alltoalls, 1);
  EXPECT_EQ(spy.sent, sent);
  EXPECT_EQ(spy.opened, opened);
}

}  // namespace
}  // namespace mivo::test
