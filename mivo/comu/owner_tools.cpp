// SPDX-License-Identifier: Apache-2.0
#include "mivo/comu/owner_tools.hpp"

#include <algorithm>
#include <cstddef>
#include <unordered_map>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/comu/serialization.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo::comu {
namespace {

/// Where the answer to each question will stand: position k of the caller was sent to rank
/// `rank[k]` as element `slot[k]`.
struct Buckets {
  std::vector<int> rank;
  std::vector<std::size_t> slot;

  explicit Buckets(std::size_t n) : rank(n), slot(n) {}

  template <class T>
  void append(std::size_t k, int to, const T& item, std::vector<std::vector<T>>& lists) {
    MIVO_CHECK(to >= 0 && static_cast<std::size_t>(to) < lists.size())
        << "directory: rank " << to << " of " << lists.size();
    std::vector<T>& list = lists[static_cast<std::size_t>(to)];
    rank[k] = to;
    slot[k] = list.size();
    list.push_back(item);
  }

  template <class T>
  const T& answer(std::size_t k, const std::vector<std::vector<T>>& answers) const {
    return answers[static_cast<std::size_t>(rank[k])][slot[k]];
  }
};

template <class T, class U>
void shapeLike(const std::vector<std::vector<T>>& model, std::vector<std::vector<U>>& lists) {
  lists.resize(model.size());
  for (std::size_t i = 0; i < model.size(); ++i) lists[i].resize(model[i].size());
}

}  // namespace

void get_owner_rank_ex(int comm, int n, const int* ids, int (*directory)(int id, void* arg),
                       void* arg, int* owners) {
  const int rank = rankOf(comm), nprocs = sizeOf(comm);
  const std::size_t count = n > 0 ? static_cast<std::size_t>(n) : 0;

  std::vector<std::vector<DATA>> questions(static_cast<std::size_t>(nprocs));
  Buckets buckets(count);
  for (std::size_t k = 0; k < count; ++k) {
    const int to = directory != nullptr ? directory(ids[k], arg) : ids[k] % nprocs;
    buckets.append(k, to, DATA{ids[k], rank}, questions);
  }
  std::vector<std::vector<DATA>> requests;
  sparse_send_recv<DATA>(comm, questions, requests, false);

  // Sources come in ascending order, so the first claim of an id is the lowest rank's unless a
  // record names another rank than its sender's.
  std::unordered_map<int, int> ownerOf;
  for (const auto& list : requests) {
    for (const DATA& claim : list) {
      const auto entry = ownerOf.emplace(claim.id, claim.rank).first;
      entry->second = std::min(entry->second, claim.rank);
    }
  }
  std::vector<std::vector<DATA>> replies = requests;
  for (auto& list : replies) {
    for (DATA& reply : list) reply.rank = ownerOf[reply.id];
  }

  std::vector<std::vector<DATA>> answers;
  shapeLike(questions, answers);
  sparse_send_recv<DATA>(comm, replies, answers, true);
  for (std::size_t k = 0; k < count; ++k) owners[k] = buckets.answer(k, answers).rank;
}

void get_owner_rank(int comm, int n, const int* ids, int* owners) {
  get_owner_rank_ex(comm, n, ids, nullptr, nullptr, owners);
}

void get_owner_rank(int comm, const std::vector<int>& ids, std::vector<int>& owners) {
  owners.resize(ids.size());
  get_owner_rank(comm, narrowToInt(ids.size(), "ids"), ids.data(), owners.data());
}

template <class K, class V>
void map_reduce(int comm, unsigned long n, const K* keys,
                const std::function<int(const K&)>& directory, const MapReducer<K, V>& reducer,
                V* results) {
  const int rank = rankOf(comm), nprocs = sizeOf(comm);

  std::vector<std::vector<K>> questions(static_cast<std::size_t>(nprocs));
  Buckets buckets(n);
  for (std::size_t k = 0; k < n; ++k) buckets.append(k, directory(keys[k]), keys[k], questions);
  std::vector<std::vector<K>> requests;
  sparse_send_recv<K>(comm, questions, requests, false);

  std::vector<std::vector<V>> replies;
  shapeLike(requests, replies);
  std::vector<std::size_t> expected;
  for (const auto& list : replies) expected.push_back(list.size());
  reducer(rank, nprocs, requests, replies);
  if (results == nullptr) return;
  MIVO_CHECK(replies.size() == expected.size())
      << "map_reduce: replies to " << replies.size() << " of " << expected.size() << " ranks";
  for (std::size_t i = 0; i < expected.size(); ++i) {
    MIVO_CHECK(replies[i].size() == expected[i])
        << "map_reduce: " << replies[i].size() << " replies to " << expected[i]
        << " requests of rank " << i;
  }

  std::vector<std::vector<V>> answers;
  shapeLike(questions, answers);
  sparse_send_recv<V>(comm, replies, answers, true);
  for (std::size_t k = 0; k < n; ++k) results[k] = buckets.answer(k, answers);
}

template void map_reduce<int, int>(int, unsigned long, const int*,
                                   const std::function<int(const int&)>&,
                                   const MapReducer<int, int>&, int*);

}  // namespace mivo::comu
