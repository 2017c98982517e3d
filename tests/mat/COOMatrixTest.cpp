// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <vector>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/assembly/COOMatrixImpl.hpp"
#include "mivo/utils/communicator.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo::test {
namespace {

// Rows.

/// Keys in runs, with strides, on both sides of zero and far away, each several times.
template <class K>
std::vector<K> someKeys(std::mt19937& rng, int count) {
  std::vector<K> keys;
  for (int k = 0; k < count; ++k) {
    const K base = static_cast<K>(rng() % 200) - 100;
    const K stride[] = {1, 16, 1024, static_cast<K>(1) << (8 * sizeof(K) - 9)};
    keys.push_back(base * stride[rng() % 4]);
  }
  return keys;
}

template <class K, class V>
void compareWithStandardMap(RowArena* arena, int count) {
  std::mt19937 rng(static_cast<unsigned>(count));
  MapWithLockType<K, V> map(arena);
  std::unordered_map<K, V> expected;
  std::unordered_map<K, V*> places;
  std::vector<K> order;
  if (count % 2 == 1) map.reserve(static_cast<std::size_t>(count) / 2);
  for (const K key : someKeys<K>(rng, count)) {
    ASSERT_EQ(map.count(key), expected.count(key));
    if (rng() % 4 == 0) {
      ASSERT_EQ(map.erase(key), expected.erase(key));
      order.erase(std::remove(order.begin(), order.end(), key), order.end());
      continue;
    }
    if (expected.count(key) == 0) order.push_back(key);
    const V value = smallValue<V>(rng);
    ASSERT_EQ(map[key], expected[key]) << "a new value is zero";
    places[key] = &(map[key] += value);
    expected[key] += value;
  }
  ASSERT_EQ(map.size(), expected.size());
  std::size_t k = 0;
  for (const auto& entry : map) {
    ASSERT_EQ(entry.first, order[k++]);
    ASSERT_EQ(entry.second, expected[entry.first]);
    ASSERT_EQ(&*map.find(entry.first), &entry);
    ASSERT_EQ(&map.at(entry.first), places[entry.first]) << "entries stay where they are";
  }
  ASSERT_EQ(k, order.size());
  EXPECT_TRUE(map.find(static_cast<K>(77777)) == map.end());
  EXPECT_THROW(map.at(static_cast<K>(77777)), std::out_of_range);

  comu::Stream stream;
  stream.setCapacity(2 * static_cast<int>(comu::getStreamSize(map)));
  comu::packStream(stream, map);
  comu::packStream(stream, map);
  std::unordered_map<K, V> standard;
  comu::unpackStream(stream, standard);
  EXPECT_EQ(standard, expected);
  map.clear();
  EXPECT_TRUE(map.begin() == map.end());
  comu::unpackStream(stream, map);
  EXPECT_EQ(map.size(), order.size());
  for (const K key : order) ASSERT_EQ(map.at(key), expected[key]);
}

TEST(MapWithLock, BehavesAsAStandardMapInOrderOfFirstUse) {
  RowArena arena;
  for (const int count : {0, 1, 2, 3, 31, 60, 5000}) {
    compareWithStandardMap<long, float>(nullptr, count);
    compareWithStandardMap<int, Complex<double>>(&arena, count);
  }
}

TEST(MapWithLock, InsertsAndErasesLikeAStandardMap) {
  MapWithLockType<int, double> map;
  const std::map<int, double> more = {{5, 0.5}, {1, 9.0}};
  EXPECT_TRUE(map.emplace(1, 2.0).second);
  EXPECT_FALSE(map.insert({1, 3.0}).second);
  EXPECT_FALSE(map.insert_or_assign(1, 4.0).second);
  EXPECT_TRUE(map.insert(std::make_pair(3, 1.0)).second);
  EXPECT_EQ(map.try_emplace(4).first->second, 0.0);
  map.insert(more.begin(), more.end());
  auto next = map.erase(map.find(3));
  EXPECT_EQ(next->first, 4);
  next = map.erase(map.erase(next));
  EXPECT_TRUE(next == map.end());
  EXPECT_EQ(map.size(), 1u);
  EXPECT_EQ(map.begin()->second, 4.0);
}

// Matrix.

/// Adds random entries and gives their sums. Rows come in runs and alone, far apart too.
template <class T, class R, class C>
EntryMap<T> addRandomEntries(COOMatrixT<T, R, C>& m, std::mt19937& rng, R rows, C cols) {
  EntryMap<T> sums;
  for (unsigned k = 0; k < 3000; ++k) {
    const R row =
        static_cast<R>(rng() % 3 == 0 ? rng() % static_cast<unsigned long>(rows) : k % 40);
    const C col = static_cast<C>(rng() % static_cast<unsigned long>(cols));
    const T value = smallValue<T>(rng);
    m.getImpl().setValue(row, col, value, SetValueMode::Add);
    sums[{row, col}] += value;
  }
  return sums;
}

template <class T, class R, class C>
void expectEntries(const COOMatrixT<T, R, C>& m, const EntryMap<T>& expected) {
  EntryMap<T> found;
  std::size_t rows = 0, entries = 0;
  m.getImpl().forEachRow([&](R row, const MapWithLockType<C, T>& map) {
    for (const auto& entry : map) found[{row, entry.first}] = entry.second;
    ++rows;
    entries += map.size();
  });
  EXPECT_EQ(found, expected);
  EXPECT_EQ(entries, expected.size());
  EXPECT_EQ(rows, m.getImpl().getRowCount());
}

TEST(COOMatrix, EntriesOfAllIndexTypesAddUp) {
  std::mt19937 rng(1);
  COOMatrixT<long, int, int> a;
  expectEntries(a, addRandomEntries(a, rng, 5000, 30));
  COOMatrixT<float, int, long> b;
  expectEntries(b, addRandomEntries(b, rng, 500, 30L));
  COOMatrixT<int, long, int> c;
  expectEntries(c, addRandomEntries(c, rng, 1L << 40, 30));
  COOMatrixT<Complex<double>, long, long> d;
  expectEntries(d, addRandomEntries(d, rng, 1L << 40, 1L << 40));
}

TEST(COOMatrix, HandlesShareRowsAndRowsOutliveTheMatrix) {
  std::shared_ptr<MapWithLockType<long, double>> row;
  {
    const COOMatrixT<double, long, long> m;
    EXPECT_EQ(m.getRows(), -1);
    EXPECT_EQ(m.getCols(), -1);
    COOMatrixT<double, long, long> handle = m;
    handle.setShape(3, 4);
    EXPECT_EQ(m.getRows(), 3);
    row = m.getRowEx(-5);
    (*row)[7] = 2;
    EXPECT_EQ(handle.getRowEx(-5), row);
    EXPECT_NE(handle.getRowEx(11), row);
    handle.getImpl().setValue(-5, 7, 3, SetValueMode::Add);
    handle.getImpl().setValue(-5, 8, 3, SetValueMode::Add);
    handle.getImpl().setValue(-5, 8, 4, SetValueMode::Set);
    handle.getImpl().setValue(-5, 9, 4, static_cast<SetValueMode>(2));
  }
  EXPECT_EQ((*row)[7], 5);
  EXPECT_EQ((*row)[8], 4);
  EXPECT_EQ(row->size(), 2u);
}

TEST(COOMatrix, CompressedFormHasEveryRow) {
  const auto rowsOf = plainRows<double>;
  for (const Device& device : testDevices()) {
    COOMatrixT<double, int, long> m;
    m.setShape(5, 6);
    CSRMatrixT<double, int> out;
    out.create(2, 2, 0, device);
    m.toCSR(out);
    EXPECT_EQ(out.getRows(), 2) << "a matrix without rows leaves the result alone";

    (*m.getRowEx(2))[4] = 1;
    (*m.getRowEx(2))[0] = 2;
    (*m.getRowEx(5))[0] = 9;
    (*m.getRowEx(-1))[0] = 9;
    const auto expected = rowsOf(6, {{}, {}, {{4, 1}, {0, 2}}, {}, {}});
    const CSRMatrixT<double, int> handle = out;
    m.toCSR(out);
    EXPECT_EQ(plainOf(out), expected);
    EXPECT_EQ(plainOf(handle), expected) << "a result without entries is filled in place";
    EXPECT_EQ(out.getCols(), 6);
    (*m.getRowEx(0))[1] = 3;
    m.toCSR(out);
    EXPECT_EQ(plainOf(out), rowsOf(6, {{{1, 3}}, {}, {{4, 1}, {0, 2}}, {}, {}}));
    EXPECT_EQ(plainOf(handle), expected) << "one with entries stays with its other handles";

    CSRMatrixT<double, long> wide;
    (*m.getRowEx(1))[(1L << 32) + 3] = 1;
    m.toCSR(wide);
    EXPECT_EQ(wide.getNnz(), 4);
    MIVO_EXPECT_FATAL_TEXT(m.toCSR(out), "toCSR: column 4294967299 does not fit the index type");
  }
}

TEST(COOMatrix, AssemblyOnOneRankSharesTheRows) {
  std::mt19937 rng(5);
  COOMatrixT<double, long, long> m;
  const auto sums = addRandomEntries(m, rng, 300L, 50L);
  COOMatrixT<double, int, long> out;
  out.setShape(300, 50);
  const auto before = out.getRowEx(299);
  (*before)[7] = 1;
  m.endAssemble(kCommSelf, partsAt<long>({0, 300}), out);
  EXPECT_EQ((*before)[7], 1) << "what was there goes from the matrix, not from who holds it";
  EXPECT_EQ(out.getRows(), 300);
  EXPECT_EQ(out.getRowEx(0).get(), m.getRowEx(0).get());

  // The rows live as long as the result, which may also be the matrix.
  m = COOMatrixT<double, long, long>();
  expectEntries(out, sums);
  COOMatrixT<double, int, long> again = out;
  out.endAssemble(kCommSelf, partsAt<int>({0, 300}), again);
  expectEntries(again, sums);
}

TEST(COOMatrix, ThreadsAddToSharedRowsAtOnce) {
  constexpr int kThreads = 4, kRounds = 30;
  constexpr long kRows = 400;
  COOMatrixT<double, long, long> m;
  m.setShape(kRows, kRows);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&m, t] {
      for (int round = 0; round < kRounds; ++round) {
        for (long i = 0; i < kRows; ++i) {
          const long row = t % 2 == 0 ? i : kRows - 1 - i;
          m.getImpl().setValue(row, (row + round) % 47, 1.0, SetValueMode::Add);
          const auto entries = m.getRowEx(row);
          const std::lock_guard<COOMatrixT<double, long, long>::Row> guard(*entries);
          (*entries)[1000 + t] += 1.0;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  CSRMatrixT<double, int> compressed[2];
  threads.clear();
  for (auto& out : compressed) threads.emplace_back([&m, &out] { m.toCSR(out); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(compressed[0] == compressed[1]);
  EXPECT_EQ(m.getImpl().getRowCount(), static_cast<std::size_t>(kRows));
  for (long row = 0; row < kRows; ++row) {
    auto& entries = *m.getRowEx(row);
    ASSERT_EQ(entries.size(), static_cast<std::size_t>(kRounds + kThreads));
    for (const auto& entry : entries) {
      ASSERT_EQ(entry.second, entry.first >= 1000 ? kRounds : kThreads)
          << row << ' ' << entry.first;
    }
  }
}

}  // namespace
}  // namespace mivo::test
