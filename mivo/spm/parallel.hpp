// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

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

}  // namespace detail

/// Calls `body(i)` for each index of the range, in rising order, chunk after chunk.
template <class Body>
void parallel_for(const RangePolicy<OpenMP>& policy, const Body& body) {
  using I = typename detail::IndexOf<Body>::type;
  const std::int64_t n = policy.end - policy.begin;
  if (n < 1) return;
  const std::int64_t c = n < policy.space.threads ? n : policy.space.threads;
  for (std::int64_t k = 0; k < c; ++k) {
    const auto range = detail::chunkRange(policy.begin, n, c, k);
    const I end = static_cast<I>(range.second);
    for (I i = static_cast<I>(range.first); i < end; ++i) body(i);
  }
}

/// Calls `body(i, acc)` for each index, with one partial result per chunk, and joins the partial
/// results in rising order into the reducer's value. An empty range gives the identity.
template <class Body, class Reducer>
void parallel_reduce(const RangePolicy<OpenMP>& policy, const Body& body, const Reducer& reducer) {
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
    const I end = static_cast<I>(range.second);
    Value acc = reducer.identity;
    for (I i = static_cast<I>(range.first); i < end; ++i) body(i, acc);
    if (k == 0) {
      result = acc;
    } else {
      Reducer::join(result, acc);
    }
  }
  reducer.value = result;
}

}  // namespace mivo::spm
