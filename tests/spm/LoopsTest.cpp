// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "mivo/spm/dispatch.hpp"
#include "mivo/spm/parallel.hpp"

namespace mivo::spm {
namespace {

using Policy = RangePolicy<OpenMP>;

/// Index ranges of the chunks, seen through a reduction whose partial results list their indices.
struct Trace {
  std::vector<std::vector<long>> chunks;
};
struct TraceReducer {
  using value_type = Trace;
  Trace& value;
  Trace identity{{{}}};
  static void join(Trace& a, const Trace& b) {
    a.chunks.insert(a.chunks.end(), b.chunks.begin(), b.chunks.end());
  }
};

std::vector<std::vector<long>> chunksOf(int threads, long begin, long end) {
  OpenMP space{threads};
  Trace trace;
  parallel_reduce(
      Policy(space, begin, end), [](long i, Trace& acc) { acc.chunks.back().push_back(i); },
      TraceReducer{trace});
  return trace.chunks;
}

TEST(HostLoops, CutTheRangeSoThatTheFirstChunksTakeTheRest) {
  using Chunks = std::vector<std::vector<long>>;
  EXPECT_EQ(chunksOf(3, 0, 10), (Chunks{{0, 1, 2, 3}, {4, 5, 6}, {7, 8, 9}}));
  EXPECT_EQ(chunksOf(3, 5, 16), (Chunks{{5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15}}));
  EXPECT_EQ(chunksOf(3, 0, 2), (Chunks{{0}, {1}}));
  EXPECT_EQ(chunksOf(1, -2, 2), (Chunks{{-2, -1, 0, 1}}));
  EXPECT_EQ(chunksOf(3, 4, 4), (Chunks{{}}));
}

TEST(HostLoops, ForVisitsEachIndexOnceInRisingOrder) {
  for (const int threads : {1, 3, 100}) {
    OpenMP space{threads};
    for (const auto& range : {std::pair<int, int>{0, 10}, {7, 12}, {0, 0}, {3, 1}}) {
      const Policy policy(space, range.first, range.second);
      std::vector<int> expected, typed, quiet, generic;
      for (int i = range.first; i < range.second; ++i) expected.push_back(i);
      parallel_for(policy, [&](int i) { typed.push_back(i); });
      parallel_for(policy, [&](int i) noexcept { quiet.push_back(i); });
      parallel_for(policy, [&](auto i) { generic.push_back(static_cast<int>(i)); });
      EXPECT_EQ(typed, expected);
      EXPECT_EQ(quiet, expected);
      EXPECT_EQ(generic, expected);
    }
  }
}

template <class I>
void expectIndicesAs(std::int64_t begin, std::int64_t end) {
  const OpenMP space(2);
  std::vector<I> expected, seen, reduced;
  for (std::int64_t i = begin; i < end; ++i) expected.push_back(static_cast<I>(i));
  parallel_for<OpenMP>(Policy(space, begin, end), [&](I i) { seen.push_back(i); });
  EXPECT_EQ(seen, expected) << begin << " " << end;
  int count = 0;
  parallel_reduce<OpenMP>(
      Policy(space, begin, end),
      [&](I i, int& acc) {
        reduced.push_back(i);
        ++acc;
      },
      Sum(count, 0));
  EXPECT_EQ(reduced, expected) << begin << " " << end;
  EXPECT_EQ(count, end - begin);
}

TEST(HostLoops, IndicesMayPassTheRangeOfTheBodysType) {
  const std::int64_t last = std::numeric_limits<int>::max();
  expectIndicesAs<int>(last - 7, last + 1);
  expectIndicesAs<int>(last - 2, last + 3);
  expectIndicesAs<int>(-last - 3, -last + 2);
  expectIndicesAs<unsigned>(-3, 3);
  expectIndicesAs<unsigned>(2 * last - 1, 2 * last + 5);
  expectIndicesAs<unsigned char>(0, 300);
  expectIndicesAs<signed char>(-300, 300);
  expectIndicesAs<unsigned long>(-3, 3);
  expectIndicesAs<long>(last * last, last * last + 2);
}

template <template <class, class> class Reducer, class T>
T reduce(int threads, const std::vector<T>& values, T before) {
  OpenMP space{threads};
  T result = before;
  parallel_reduce(
      Policy(space, 0, static_cast<std::int64_t>(values.size())),
      [&](int i, T& acc) { Reducer<T, OpenMP>::join(acc, values[static_cast<std::size_t>(i)]); },
      Reducer<T, OpenMP>(result));
  return result;
}

template <class T>
void expectIdentities(const T& min, const T& max) {
  EXPECT_EQ((reduce<Sum, T>(1, {}, T(9))), T(0));
  EXPECT_EQ((reduce<Min, T>(1, {}, T(9))), min);
  EXPECT_EQ((reduce<Max, T>(3, {}, T(9))), max);
}

TEST(Reducers, EmptyRangeGivesTheIdentity) {
  expectIdentities<int>(2147483647, -2147483647 - 1);
  expectIdentities<long>(std::numeric_limits<long>::max(), std::numeric_limits<long>::min());
  expectIdentities<float>(std::numeric_limits<float>::max(), 1.17549435e-38f);
  expectIdentities<double>(std::numeric_limits<double>::max(), 2.2250738585072014e-308);
  expectIdentities<Complex<float>>(0.0f, 0.0f);
  expectIdentities<Complex<double>>(0.0, 0.0);
}

TEST(Reducers, StartFromAGivenIdentity) {
  OpenMP space(2);
  const auto leastAndMost = [&](std::int64_t n, double least, double most) {
    const auto square = [](std::int64_t i) { return static_cast<double>(i * i - 4 * i); };
    parallel_reduce(
        RangePolicy(space, 0, n, -1),
        [&](int i, double& acc) { acc = square(i) < acc ? square(i) : acc; }, Min(least, 7.5));
    parallel_reduce(
        Policy(space, 0, n), [&](int i, double& acc) { acc = square(i) > acc ? square(i) : acc; },
        Max<double, OpenMP>(most, -8.5));
    return std::make_pair(least, most);
  };
  EXPECT_EQ(leastAndMost(0, 1, 1), std::make_pair(7.5, -8.5));
  EXPECT_EQ(leastAndMost(4, 1, 1), std::make_pair(-4.0, 0.0));
}

TEST(Reducers, JoinChunksWhateverTheirNumber) {
  const std::vector<double> values = {3, -4, 8, 2, -7, 5, 1};
  for (const int threads : {1, 2, 3, 7, 50}) {
    EXPECT_EQ((reduce<Sum, double>(threads, values, 100)), 8);
    EXPECT_EQ((reduce<Min, double>(threads, values, 100)), -7);
    EXPECT_EQ((reduce<Max, double>(threads, values, 100)), 8);
    // Only negative numbers: the start of the maximum stays.
    EXPECT_EQ((reduce<Max, double>(threads, {-3, -2}, 100)), 2.2250738585072014e-308);
    EXPECT_EQ((reduce<Max, int>(threads, {-3, -2}, 100)), -2);
  }
}

TEST(Reducers, ComplexNumbersCompareByRealPartBesideZero) {
  using Z = Complex<double>;
  const std::vector<Z> values = {{1, 5}, {3, -1}, {-2, 7}, {3, 9}, {-2, 8}};
  for (const int threads : {1, 3}) {
    // The first of equal real parts is kept, whole.
    EXPECT_EQ((reduce<Min, Z>(threads, values, Z(9))), Z(-2, 7));
    EXPECT_EQ((reduce<Max, Z>(threads, values, Z(9))), Z(3, -1));
    EXPECT_EQ((reduce<Sum, Z>(threads, values, Z(9))), Z(3, 28));
    EXPECT_EQ((reduce<Min, Z>(threads, {{4, 4}}, Z(9))), Z(0));
    EXPECT_EQ((reduce<Max, Z>(threads, {{-4, 4}}, Z(9))), Z(0));
  }
}

TEST(Dispatch, RunsOnTheHostWithoutInitializeAndGivesZeroForUnknownKinds) {
  Device::finalize();
  const auto threads = [](auto& space, int offset) { return space.threads + offset; };
  EXPECT_EQ(dispatch(Device(), threads, 10), 11);
  EXPECT_EQ(dispatch(Device(Device::kHip), threads, 10), 0);
  EXPECT_EQ(dispatch(Device(9, 0), threads, 10), 0);
}

}  // namespace
}  // namespace mivo::spm
