// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include "mivo/utils/export.hpp"

// Searches by a directory: each id has a rank that answers questions about it. All functions are
// collective; a rank with nothing to ask calls them too, since others ask it.

namespace mivo::comu {

/// Which rank owns each of the n ids that this rank lists: the lowest rank that lists it.
///
/// `directory(id, arg)` gives the rank that answers for an id, the same on all ranks; null means
/// id % nprocs, for ids that are not negative. `owners` has n elements. Equal ids get equal
/// answers.
MIVO_API void get_owner_rank_ex(int comm, int n, const int* ids,
                                int (*directory)(int id, void* arg), void* arg, int* owners);

MIVO_API void get_owner_rank(int comm, int n, const int* ids, int* owners);
/// `owners` is resized to the number of ids.
MIVO_API void get_owner_rank(int comm, const std::vector<int>& ids, std::vector<int>& owners);

/// The reduction of `map_reduce`, called once on each rank: requests[i] are the keys that rank i
/// sent here, which it may use up, replies[i] comes sized like requests[i] and takes the answers,
/// position by position. It may call collectives of its own.
template <class K, class V>
using MapReducer = std::function<void(int rank, int nprocs, std::vector<std::vector<K>>& requests,
                                      std::vector<std::vector<V>>& replies)>;

/// Sends each of the n keys to the rank `directory(key)`, lets `reducer` answer there, and writes
/// the answers to results[k] in the order of the keys. `results` may be `keys`. Replies that are
/// not as many as the requests end the program.
///
/// Null `results` means that no rank wants answers, and has to be so on all ranks; a rank without
/// keys among others that have some passes any other pointer. Instantiated for int keys and int
/// answers.
template <class K, class V>
MIVO_API void map_reduce(int comm, unsigned long n, const K* keys,
                         const std::function<int(const K&)>& directory,
                         const MapReducer<K, V>& reducer, V* results);

extern template MIVO_API void map_reduce<int, int>(int, unsigned long, const int*,
                                                   const std::function<int(const int&)>&,
                                                   const MapReducer<int, int>&, int*);

}  // namespace mivo::comu
