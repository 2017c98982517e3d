// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

#include "mivo/spm/RangePolicy.hpp"
#include "mivo/spm/function.hpp"
#include "mivo/spm/impls/OpenMP.hpp"
#include "mivo/spm/reducers.hpp"
#if defined(MIVO_WITH_CUDA) && (defined(__CUDACC__) || defined(MIVO_CUDA_EMULATE))
#include "mivo/spm/impls/CudaParallel.hpp"
#endif

namespace mivo::spm {

namespace detail {

template <class F>
struct FirstArgument;
template <class C, class R, class A, class... Rest>
struct FirstArgument<R (C::*)(A, Rest...) const> {
  using type = std::decay_t<A>;
};
template <class C, class R, class A, class... Rest>
struct FirstArgument<R (C::*)(A, Rest...) const noexcept> {
  using type = std::decay_t<A>;
};

/// Index type of a kernel body, and 64-bit for a generic one. Looping in the body's own type keeps
/// addresses affine, so that the compiler can vectorise.
template <class Body, class = void>
struct IndexOf {
  using type = std::int64_t;
};
template <class Body>
struct IndexOf<Body, std::void_t<decltype(&Body::operator())>> {
  using type = typename FirstArgument<decltype(&Body::operator())>::type;
};

/// Chunk k of c of the range: the first n % c chunks have one index more than the others.
inline std::pair<std::int64_t, std::int64_t> chunkRange(std::int64_t begin, std::int64_t n,
                                                        std::int64_t c, std::int64_t k) {
  const std::int64_t q = n / c;
  const std::int64_t r = n % c;
  const std::int64_t first = begin + k * q + (k < r ? k : r);
  return {first, first + q + (k < r ? 1 : 0)};
}

/// Calls body(i) for n indices from `first` on. The one place that calls it, so that compilers
/// inline it whatever its size.
template <class I, class Body>
void loopThrough(I first, I n, const Body& body) {
  for (I k = 0; k < n; ++k) body(static_cast<I>(first + k));
}
/// The same for body(i, acc); returns the final acc.
template <class I, class Body, class Value>
Value loopThrough(I first, I n, const Body& body, Value acc) {
  for (I k = 0; k < n; ++k) body(static_cast<I>(first + k), acc);
  return acc;
}

/// Calls run(first, n) for runs of numbers of type I that make up [begin, end), as a rule a single
/// one. Indices that I does not hold are converted, as by a loop in 64 bits.
template <class I, class Run>
void forEachRun(std::int64_t begin, std::int64_t end, const Run& run) {
  constexpr std::int64_t kMost = std::numeric_limits<I>::max();
  while (begin < end) {
    const I first = static_cast<I>(begin);
    std::int64_t n = end - begin;
    if constexpr (sizeof(I) < sizeof(std::int64_t)) {
      if (n > kMost) n = kMost;
      if (n - 1 > kMost - first) n = kMost - first + 1;
    }
    run(first, static_cast<I>(n));
    begin += n;
  }
}

}  // namespace detail

/// Calls `body(i)` for each index of the range, in rising order, chunk after chunk.
template <class Space, class Body>
detail::IfSpace<Space, OpenMP> parallel_for(const RangePolicy<Space>& policy, const Body& body) {
  using I = typename detail::IndexOf<Body>::type;
  const std::int64_t n = policy.end - policy.begin;
  if (n < 1) return;
  const std::int64_t c = n < policy.space.threads ? n : policy.space.threads;
  for (std::int64_t k = 0; k < c; ++k) {
    const auto range = detail::chunkRange(policy.begin, n, c, k);
    detail::forEachRun<I>(range.first, range.second, [&](I first, I count) {
      detail::loopThrough<I, Body>(first, count, body);
    });
  }
}

/// Calls `body(i, acc)` for each index, with one partial result per chunk, and joins the partial
/// results in rising order into the reducer's value. An empty range gives the identity.
template <class Space, class Body, class Reducer>
detail::IfSpace<Space, OpenMP> parallel_reduce(const RangePolicy<Space>& policy, const Body& body,
                                               const Reducer& reducer) {
  using I = typename detail::IndexOf<Body>::type;
  using Value = typename Reducer::value_type;
  const std::int64_t n = policy.end - policy.begin;
  if (n < 1) {
    reducer.value = reducer.identity;
    return;
  }
  const std::int64_t c = n < policy.space.threads ? n : policy.space.threads;
  // Joining each chunk as it ends gives what a list of partial results would, without the list.
  Value result = reducer.identity;
  for (std::int64_t k = 0; k < c; ++k) {
    const auto range = detail::chunkRange(policy.begin, n, c, k);
    Value acc = reducer.identity;
    detail::forEachRun<I>(range.first, range.second, [&](I first, I count) {
      acc = detail::loopThrough<I, Body, Value>(first, count, body, acc);
    });
    if (k == 0) {
      result = acc;
    } else {
      Reducer::join(result, acc);
    }
  }
  reducer.value = result;
}

}  // namespace mivo::spm
