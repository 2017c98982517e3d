// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/export.hpp"

namespace mivo {

// Steps and records of the kernels that coarsen a level.

/// Step of the distributed aggregation.
enum AggregateStep : int {
  AGGREGATE_STEP_INIT = 0,       ///< which nodes have strong connections
  AGGREGATE_STEP_AGGREGATE = 1,  ///< one round over the nodes that are undone
  AGGREGATE_STEP_APPLY = 2,      ///< take over what other ranks decided
};

/// A node that has joined an aggregate of another rank, on its way to its owner. Sent as it lies in
/// memory.
template <class T>
struct MIVO_API AggregateData {
  T part;       ///< rank that owns the node
  T local;      ///< the node's row there
  T aggregate;  ///< number of the aggregate on the rank that made it
};

/// Step of the coarsening by parallel modified independent sets.
enum CoarsenPMISStep : int {
  COARSEN_PMIS_STEP_MEASURE = 0,          ///< dependants of each point
  COARSEN_PMIS_STEP_INDEPENDENT_SET = 1,  ///< candidates for C points
  COARSEN_PMIS_STEP_MARK = 2,             ///< new C and F points
  COARSEN_PMIS_STEP_UPDATE_GRAPH = 3,     ///< points that are still undecided
  COARSEN_PMIS_STEP_INITIAL = 10,         ///< initial marks and random weights
};

}  // namespace mivo
