// SPDX-License-Identifier: Apache-2.0

// The cases hold for any number of ranks: what each rank sends is a function of source and
// destination, so that each receiver can work out what it must get. `mpiexec` runs the same program
// on several.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <utility>
#include <vector>

#include "mivo/comu/communication_tools_impl.hpp"
#include "mivo/comu/ghost_tools.hpp"
#include "mivo/comu/graph_tools.hpp"
#include "mivo/comu/owner_tools.hpp"
#include "mivo/utils/Device.hpp"
#include "tests/support/world.hpp"

namespace mivo::comu {
namespace {

using Lists = std::vector<std::vector<int>>;

using test::worldRank;
using test::worldSize;

class MessageLayer : public testing::Environment {
 public:
  void SetUp() override { Device::initialize(); }
  void TearDown() override { Device::finalize(); }
};
const auto* const kMessageLayer = testing::AddGlobalTestEnvironment(new MessageLayer);

// How many words each rank sends to each.
struct Traffic {
  const char* name;
  int (*length)(int from, int to);
};
const Traffic kTraffics[] = {
    {"empty for some pairs", [](int from, int to) { return (3 * from + 5 * to + 2) % 4; }},
    {"nobody sends", [](int, int) { return 0; }},
    {"only to oneself", [](int from, int to) { return from == to ? 3 : 0; }},
    {"only the last rank", [](int from, int) { return from == worldSize() - 1 ? 2 : 0; }},
    // Past the length that a message-passing library sends before the receiver has asked for it.
    {"one heavy rank", [](int from, int) { return from == worldSize() / 2 ? 60000 : 1; }},
};

std::vector<int> letter(const Traffic& traffic, int from, int to) {
  std::vector<int> text(static_cast<std::size_t>(traffic.length(from, to)));
  std::iota(text.begin(), text.end(), 1000000 * from + 100000 * to);
  return text;
}

TEST(SparseSendRecv, DeliversEachListToItsRank) {
  const int rank = worldRank(), size = worldSize();
  for (const Traffic& traffic : kTraffics) {
    Lists send, expected;
    for (int i = 0; i < size; ++i) {
      send.push_back(letter(traffic, rank, i));
      expected.push_back(letter(traffic, i, rank));
    }
    Lists recv = {{1, 2, 3}};
    sparse_send_recv<int>(kCommWorld, send, recv, false);
    EXPECT_EQ(recv, expected) << traffic.name;

    Lists sized(expected.size());
    for (std::size_t i = 0; i < sized.size(); ++i) sized[i].resize(expected[i].size());
    sparse_send_recv<int>(kCommWorld, send, sized, true);
    EXPECT_EQ(sized, expected) << traffic.name;
  }
}

TEST(SparseSendRecv, TakesAShortListAsEmptyForTheOthers) {
  const int rank = worldRank(), size = worldSize();
  Lists recv;
  sparse_send_recv<int>(kCommWorld, {}, recv, false);
  EXPECT_EQ(recv, Lists(static_cast<std::size_t>(size)));

  sparse_send_recv<int>(kCommWorld, {{rank}}, recv, false);
  Lists expected(static_cast<std::size_t>(size));
  if (rank == 0) {
    for (int i = 0; i < size; ++i) expected[static_cast<std::size_t>(i)] = {i};
  }
  EXPECT_EQ(recv, expected);
}

// A handle that packs itself, as matrices do.
struct Packet {
  std::shared_ptr<std::vector<int>> words = std::make_shared<std::vector<int>>();

  int getStreamSize() const { return static_cast<int>(comu::getStreamSize(*words)); }
  void packStream(Stream& stream) const { comu::packStream(stream, *words); }
  void unpackStream(Stream& stream) { comu::unpackStream(stream, *words); }
};

Packet packet(const Traffic& traffic, int from, int to) {
  return {std::make_shared<std::vector<int>>(letter(traffic, from, to))};
}

TEST(SparseSendRecvStream, UnpacksWhatOthersPackedAndSharesTheOwnElement) {
  const int rank = worldRank(), size = worldSize();
  for (const Traffic& traffic : kTraffics) {
    std::vector<Packet> send, recv;
    for (int i = 0; i < size; ++i) send.push_back(packet(traffic, rank, i));
    sparse_send_recv_stream(kCommWorld, send, recv);
    EXPECT_EQ(recv.size(), send.size());
    recv.resize(send.size());
    for (int i = 0; i < size; ++i) {
      EXPECT_EQ(*recv[static_cast<std::size_t>(i)].words, letter(traffic, i, rank))
          << traffic.name << ", from " << i;
    }
    const std::size_t own = static_cast<std::size_t>(rank);
    EXPECT_EQ(recv[own].words, send[own].words);
  }
}

TEST(ScatterGatherStream, MovesEachElementBetweenTheRootAndItsRank) {
  const int rank = worldRank(), size = worldSize();
  for (const Traffic& traffic : kTraffics) {
    for (int root = 0; root < size; ++root) {
      std::vector<Packet> all;
      if (rank == root) {
        for (int i = 0; i < size; ++i) all.push_back(packet(traffic, root, i));
      }
      Packet mine;
      stlmpi_scatter_stream(kCommWorld, all, mine, root);
      EXPECT_EQ(*mine.words, letter(traffic, root, rank)) << traffic.name;

      const Packet back = packet(traffic, rank, root);
      std::vector<Packet> collected;
      stlmpi_gather_stream(kCommWorld, back, collected, root);
      EXPECT_EQ(collected.size(), rank == root ? static_cast<std::size_t>(size) : 0u);
      for (std::size_t i = 0; i < collected.size(); ++i) {
        EXPECT_EQ(*collected[i].words, letter(traffic, static_cast<int>(i), root))
            << traffic.name << ", from " << i;
      }
    }
  }
}

// Which ranks list an id in the owner search.
bool lists(int rank, int id) { return (id * 7 + rank * rank) % 3 != 0; }

TEST(OwnerSearch, NamesTheLowestRankThatListsAnId) {
  const int rank = worldRank(), size = worldSize();
  std::vector<int> ids, expected;
  for (int id = 40; id >= 0; --id) {
    if (!lists(rank, id)) continue;
    int owner = 0;
    while (owner < size && !lists(owner, id)) ++owner;
    // Twice in the list, which makes no difference.
    for (int twice = 0; twice < 2; ++twice) {
      ids.push_back(id);
      expected.push_back(owner);
    }
  }
  std::vector<int> owners = {1, 2, 3};
  get_owner_rank(kCommWorld, ids, owners);
  EXPECT_EQ(owners, expected);

  int divisor = 10;
  const auto directory = [](int id, void* arg) {
    return std::min(id / *static_cast<int*>(arg), worldSize() - 1);
  };
  std::fill(owners.begin(), owners.end(), -5);
  get_owner_rank_ex(kCommWorld, static_cast<int>(ids.size()), ids.data(), directory, &divisor,
                    owners.data());
  EXPECT_EQ(owners, expected);

  // A rank without ids still answers for others.
  std::vector<int> only(rank == 0 ? 12 : 0);
  std::iota(only.begin(), only.end(), 0);
  get_owner_rank(kCommWorld, only, owners);
  EXPECT_EQ(owners, std::vector<int>(only.size(), 0));
}

TEST(MapReduce, AnswersEachKeyInItsPlaceAndMayAnswerInPlace) {
  const int rank = worldRank(), size = worldSize();
  // Some ranks have no keys, and answer for others all the same. Null instead of their answers
  // would say that no rank wants any.
  const auto keysOf = [](int r) {
    std::vector<int> out;
    out.reserve(9);
    for (int k = 0; k < (r % 3 == 1 ? 0 : 9); ++k) out.push_back((5 * k + r) % 7);
    return out;
  };
  std::vector<int> keys = keysOf(rank), expected;
  std::map<int, int> times;
  for (int r = 0; r < size; ++r) {
    for (const int key : keysOf(r)) ++times[key];
  }
  for (const int key : keys) expected.push_back(times[key]);
  const auto directory = [size](const int& key) { return key % size; };
  // Counts how often a key is sent in all.
  const auto count = [&](int reducerRank, int nprocs, Lists& requests, Lists& replies) {
    EXPECT_EQ(reducerRank, rank);
    EXPECT_EQ(nprocs, size);
    std::map<int, int> seen;
    for (const auto& list : requests) {
      for (const int key : list) {
        EXPECT_EQ(key % size, rank);
        ++seen[key];
      }
    }
    for (std::size_t i = 0; i < requests.size(); ++i) {
      EXPECT_EQ(replies[i].size(), requests[i].size());
      for (std::size_t k = 0; k < requests[i].size(); ++k) replies[i][k] = seen[requests[i][k]];
      requests[i].clear();  // they are the reducer's
    }
  };
  map_reduce<int, int>(kCommWorld, keys.size(), keys.data(), directory, count, nullptr);
  map_reduce<int, int>(kCommWorld, keys.size(), keys.data(), directory, count, keys.data());
  EXPECT_EQ(keys, expected);
}

// A graph on kVertices vertices, known to every rank; some rows have no diagonal, one is empty.
constexpr int kVertices = 23;
constexpr int kEmptyRow = 11;

std::set<int> neighbours(int row) {
  std::set<int> cols;
  if (row == kEmptyRow) return cols;
  for (int k = 1; k <= 3; ++k) cols.insert((row * row + 5 * k) % kVertices);
  if (row % 2 == 0) cols.insert(row);
  return cols;
}

struct Rows {
  std::vector<int> rows, ptr = {0}, cols;
  void add(int row, const std::set<int>& entries) {
    rows.push_back(row);
    cols.insert(cols.end(), entries.begin(), entries.end());
    ptr.push_back(static_cast<int>(cols.size()));
  }
};

// How the rows are dealt out: numbered in rank order, so that no rank lists its rows, or listed. In
// two of the deals all ranks but one hold nothing.
enum class Deal { kPieces, kAllToTheLast, kRound, kAllListedByTheFirst };
constexpr Deal kDeals[] = {Deal::kPieces, Deal::kAllToTheLast, Deal::kRound,
                           Deal::kAllListedByTheFirst};

int ownerOf(int row, Deal deal) {
  const int size = worldSize();
  if (deal == Deal::kPieces) return row / ((kVertices + size - 1) / size);
  if (deal == Deal::kRound) return row % size;
  return deal == Deal::kAllToTheLast ? size - 1 : 0;
}

Rows ownRows(Deal deal, std::set<int> (*entries)(int)) {
  Rows out;
  for (int row = 0; row < kVertices; ++row) {
    if (ownerOf(row, deal) == worldRank()) out.add(row, entries(row));
  }
  if (deal == Deal::kPieces || deal == Deal::kAllToTheLast) out.rows.clear();
  return out;
}

std::set<int> symmetric(int row) {
  std::set<int> cols = neighbours(row);
  for (int other = 0; other < kVertices; ++other) {
    if (neighbours(other).count(row) > 0) cols.insert(other);
  }
  return cols;
}

TEST(TransposeMatrix, GivesTheReferrersOfEachColumnThatARankUses) {
  for (const Deal deal : kDeals) {
    const Rows own = ownRows(deal, neighbours);
    Graph expected;
    for (const int col : own.cols) {
      for (int row = 0; row < kVertices; ++row) {
        if (neighbours(row).count(col) > 0) expected[col].insert(row);
      }
    }
    // What the graph holds before is joined.
    Graph graph = {{1000, {1}}};
    expected[1000] = {1};
    transpose_matrix(kCommWorld, own.rows, own.ptr, own.cols, graph);
    EXPECT_EQ(graph, expected);
  }
}

TEST(GhostInfo, FindsGhostsAndWhatOthersWantOnTheSymmetrisedGraph) {
  const int rank = worldRank();
  for (const Deal deal : kDeals) {
    std::map<int, int> ghosts;             // with their owners
    std::set<std::pair<int, int>> wanted;  // ranks with the rows that they want
    for (int row = 0; row < kVertices; ++row) {
      for (const int col : symmetric(row)) {
        const int owner = ownerOf(col, deal);
        if (ownerOf(row, deal) != rank || owner == rank) continue;
        ghosts[col] = owner;
        wanted.insert({owner, row});
      }
    }
    std::vector<int> expected[4];
    for (const auto& [other, row] : wanted)
      expected[0].push_back(row), expected[1].push_back(other);
    for (const auto& [id, owner] : ghosts) expected[2].push_back(id), expected[3].push_back(owner);
    for (const bool unsymmetric : {false, true}) {
      std::vector<int> out[4] = {{9}, {9}, {9}, {9}};
      const Rows own = ownRows(deal, unsymmetric ? neighbours : symmetric);
      const auto info = unsymmetric ? get_unsym_ghost_info : get_sym_ghost_info;
      info(kCommWorld, own.rows, own.ptr, own.cols, out[0], out[1], out[2], out[3]);
      for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(out[k], expected[k]) << static_cast<int>(deal) << unsymmetric << k;
      }
    }
  }
}

TEST(GhostInfo, GivesAColumnThatNoRankHoldsTheOwnerMinusOne) {
  const int rank = worldRank();
  std::vector<int> recvRows, sendRanks, ghostIds, ghostRanks;
  for (const bool listed : {true, false}) {
    const std::vector<int> rows = listed ? std::vector<int>{rank} : std::vector<int>{};
    get_sym_ghost_info(kCommWorld, rows, {0, 2}, {rank, 900}, recvRows, sendRanks, ghostIds,
                       ghostRanks);
    EXPECT_EQ(ghostIds, std::vector<int>{900});
    EXPECT_EQ(ghostRanks, std::vector<int>{-1});
    EXPECT_TRUE(recvRows.empty() && sendRanks.empty());
  }
}

// Row r of rank r; all but row 0 refer to row 0, which refers to none, itself not either.
TEST(GhostInfo, TellsARowWithoutEntriesOfThoseThatReferToIt) {
  const int rank = worldRank();
  std::vector<int> recvRows, sendRanks, ghostIds, ghostRanks, others;
  for (int r = 1; r < worldSize(); ++r) others.push_back(r);
  if (rank > 0) others = {0};
  get_unsym_ghost_info(kCommWorld, {rank}, {0, rank > 0 ? 1 : 0},
                       std::vector<int>(rank > 0 ? 1 : 0, 0), recvRows, sendRanks, ghostIds,
                       ghostRanks);
  EXPECT_EQ(recvRows, std::vector<int>(others.size(), rank));
  EXPECT_EQ(sendRanks, others);
  EXPECT_EQ(ghostIds, others);
  EXPECT_EQ(ghostRanks, others);
}

TEST(GraphFormat, FlattensByKeyOrByAGivenOrder) {
  const Graph graph = {{4, {9, 1}}, {-2, {}}, {7, {3}}};
  std::vector<int> ids = {1}, ptr = {5, 5}, cols = {8};
  change_format(graph, ids, ptr, cols);
  EXPECT_EQ(ids, (std::vector<int>{-2, 4, 7}));
  EXPECT_EQ(ptr, (std::vector<int>{0, 0, 2, 3}));
  EXPECT_EQ(cols, (std::vector<int>{1, 9, 3}));

  change_format2(graph, {7, 100, 4}, ptr, cols);
  EXPECT_EQ(ptr, (std::vector<int>{0, 1, 1, 3}));
  EXPECT_EQ(cols, (std::vector<int>{3, 1, 9}));

  change_format({}, ids, ptr, cols);
  EXPECT_TRUE(ids.empty() && cols.empty());
  EXPECT_EQ(ptr, std::vector<int>{0});
}

}  // namespace
}  // namespace mivo::comu
