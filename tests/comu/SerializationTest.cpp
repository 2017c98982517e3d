// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "mivo/comu/graph_tools.hpp"
#include "mivo/comu/owner_tools.hpp"
#include "mivo/comu/records.hpp"
#include "mivo/comu/serialization.hpp"
#include "mivo/utils/communicator.hpp"
#include "tests/support/fatal.hpp"

namespace mivo::comu {
namespace {

TEST(Stream, KeepsIndependentPositionsAndSkipsWithNull) {
  Stream stream;
  stream.setCapacity(0);
  EXPECT_EQ(stream.getBuffer(), nullptr);
  stream.setCapacity(12);
  std::memset(stream.getBuffer(), 0x5a, 12);
  const int a = 0x01020304, b = -7;
  stream.pushBack(&a, 4);
  stream.pushBack(nullptr, 4);
  stream.pushBack(&b, 4);
  EXPECT_EQ(stream.getWritePosition(), 12);
  EXPECT_EQ(stream.getReadPosition(), 0);

  int got = 0;
  stream.popFront(&got, 4);
  EXPECT_EQ(got, a);
  stream.popFront(&got, 4);
  EXPECT_EQ(got, 0x5a5a5a5a);
  stream.popFront(nullptr, 2);
  EXPECT_EQ(stream.getReadPosition(), 10);
  EXPECT_EQ(stream.getWritePosition(), 12);

  // A size of 0 changes nothing on a stream in use either.
  stream.setCapacity(0);
  EXPECT_EQ(stream.getReadPosition(), 10);
  EXPECT_EQ(stream.getCapacity(), 12);
}

TEST(Stream, LeavesAnAdoptedBufferToItsOwner) {
  unsigned char memory[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  {
    Stream stream;
    stream.setAllocactedBuffer(8, memory);
    EXPECT_EQ(stream.getBuffer(), memory);
    EXPECT_EQ(stream.getWritePosition(), 0);
    const unsigned char nine = 9;
    stream.pushBack(&nine, 1);
    // The mark travels with the buffer.
    Stream moved(std::move(stream));
    unsigned char first = 0;
    moved.popFront(&first, 1);
    EXPECT_EQ(first, 9);
  }
  EXPECT_EQ(memory[1], 2);
}

// Packs into a buffer of the announced size, checks that it is filled exactly, and unpacks again.
template <class E>
E roundTrip(const E& value, std::vector<int>* words = nullptr) {
  const std::size_t size = getStreamSize(value);
  std::vector<int> memory(size / sizeof(int) + 2, 0x77777777);
  Stream stream;
  stream.setAllocactedBuffer(static_cast<int>(size), memory.data());
  packStream(stream, value);
  EXPECT_EQ(static_cast<std::size_t>(stream.getWritePosition()), size);
  EXPECT_EQ(memory.back(), 0x77777777);
  E result{};
  unpackStream(stream, result);
  EXPECT_EQ(static_cast<std::size_t>(stream.getReadPosition()), size);
  memory.resize(size / sizeof(int));
  if (words != nullptr) *words = memory;
  return result;
}

TEST(Serialization, LayoutIsDenseWithCountsAndKeysBeforeElements) {
  using Words = std::vector<int>;
  Words words;

  const TRDATA record = roundTrip(TRDATA{5, 2, {9, -1, 4}}, &words);
  EXPECT_EQ(words, (Words{5, 2, 3, -1, 4, 9}));
  EXPECT_EQ(record.id, 5);
  EXPECT_EQ(record.rank, 2);
  EXPECT_EQ(record.neighbours, (std::set<int>{-1, 4, 9}));

  EXPECT_EQ(roundTrip(std::vector<int>{3, 1}, &words), (std::vector<int>{3, 1}));
  EXPECT_EQ(words, (Words{2, 3, 1}));
  roundTrip(std::vector<TRDATA>{}, &words);
  EXPECT_EQ(words, (Words{0}));
  roundTrip(std::vector<TRDATA>{{1, 2, {}}, {3, 4, {8}}}, &words);
  EXPECT_EQ(words, (Words{2, 1, 2, 0, 3, 4, 1, 8}));

  const std::map<int, std::vector<int>> map = {{7, {1, 2}}, {-3, {}}, {0, {5}}};
  EXPECT_EQ(roundTrip(map, &words), map);
  EXPECT_EQ(words, (Words{3, -3, 0, 0, 1, 5, 7, 2, 1, 2}));

  const std::unordered_map<long, double> row = {{1L << 40, 0.5}, {-2, -1.5}, {0, 0}};
  EXPECT_EQ(getStreamSize(row), 4u + 3 * 16);
  EXPECT_EQ(roundTrip(row), row);
}

TEST(Serialization, UnpackingReplacesWhatWasThere) {
  Stream stream;
  stream.setCapacity(64);
  packStream(stream, std::map<int, int>{{1, 10}});
  packStream(stream, std::vector<Complex<float>>{{1, 2}});
  packStream(stream, TRDATA{1, 0, {2}});
  std::map<int, int> map = {{1, 5}, {2, 6}};
  std::vector<Complex<float>> vector(3);
  TRDATA record{0, 0, {7, 8}};
  unpackStream(stream, map);
  unpackStream(stream, vector);
  unpackStream(stream, record);
  EXPECT_EQ(map, (std::map<int, int>{{1, 10}}));
  EXPECT_EQ(vector, (std::vector<Complex<float>>{{1, 2}}));
  EXPECT_EQ(record.neighbours, std::set<int>{2});
}

TEST(Serialization, RefusesWhatDoesNotFitA32BitCount) {
  const std::size_t limit = std::numeric_limits<int>::max();
  EXPECT_EQ(narrowToInt(limit, "bytes"), std::numeric_limits<int>::max());
  MIVO_EXPECT_FATAL_TEXT(narrowToInt(limit + 1, "bytes"),
                         "message too large: 2147483648 bytes, at most 2147483647 fit");
}

TEST(Directory, RefusesIdsThatNoRankAnswersFor) {
  int owner = 0;
  const int id = 5;
  for (const int rank : {1, -1}) {
    const auto directory = [](int, void* arg) { return *static_cast<int*>(arg); };
    int answer = rank;
    MIVO_EXPECT_FATAL_TEXT(get_owner_rank_ex(kCommWorld, 1, &id, directory, &answer, &owner),
                           "directory: rank " + std::to_string(rank) + " of 1");
  }
  Graph graph;
  MIVO_EXPECT_FATAL_TEXT(transpose_matrix(kCommWorld, {0}, {0, 1}, {-3}, graph),
                         "transpose_matrix: column -3");
}

TEST(Directory, RefusesRepliesThatAreNotAsManyAsTheRequests) {
  using Lists = std::vector<std::vector<int>>;
  const std::vector<int> keys = {0, 0};
  std::vector<int> answers = keys;
  const auto directory = [](const int&) { return 0; };
  for (const std::size_t length : {1u, 3u}) {
    const auto reduce = [&](int, int, const Lists&, Lists& replies) { replies[0].resize(length); };
    MIVO_EXPECT_FATAL_TEXT(
        (map_reduce<int, int>(kCommWorld, 2, keys.data(), directory, reduce, answers.data())),
        "map_reduce: " + std::to_string(length) + " replies to 2 requests of rank 0");
  }
}

}  // namespace
}  // namespace mivo::comu
