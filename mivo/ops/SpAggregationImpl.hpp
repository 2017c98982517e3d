// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/block_rows.hpp"
#include "mivo/ops/level_transfer_records.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

namespace sparse {

/// Nonzero entries of row i in the blocks of part `own`, or in all others.
template <class L>
MIVO_FUNCTION L strongEntries(L i, bool remote, const AggregateNodes<L>& v, L nblocks,
                              const COT_SpMVCSRRawMat<int, L>* blocks) {
  L n = 0;
  const auto add = [&n](const COT_SpMVCSRRawMat<int, L>& block, L k) {
    if (block.values[k] != 0) ++n;
  };
  if (remote) {
    loopRemoteCol(i, v.rank, nblocks, blocks, add);
  } else {
    loopLocalCol(i, v.rank, nblocks, blocks, add);
  }
  return n;
}

/// Which nodes take part.
template <class L>
MIVO_FUNCTION void beginAggregation(const AggregateNodes<L>& v) {
  int undone = 0;
  for (L i = 0; i < v.rows; ++i) {
    const bool alone = strongEntries(i, false, v, v.nblocks2, v.blocks2) == 0 &&
                       strongEntries(i, true, v, v.nblocks2, v.blocks2) == 0;
    v.state[i] = alone ? -2 : -1;
    v.owner[i] = -1;
    if (!alone) ++undone;
  }
  *v.undone = undone;
}

/// A node gets its first number.
template <class L>
MIVO_FUNCTION void join(const AggregateNodes<L>& v, L j, int id) {
  v.owner[j] = v.rank;
  v.state[j] = id;
  --*v.undone;
}

/// The undone nodes that row i of one matrix names join; stored entries count whatever their value.
/// `note(part, column)` tells of nodes of other ranks.
template <class L, class Note>
MIVO_FUNCTION void joinNeighbours(const AggregateNodes<L>& v, L i, int id, L nblocks,
                                  const COT_SpMVCSRRawMat<int, L>* blocks, const Note& note) {
  loopLocalCol(i, v.rank, nblocks, blocks, [&](const COT_SpMVCSRRawMat<int, L>& block, L k) {
    const L j = block.col_idx[k];
    if (j != i && v.state[j] == -1) join(v, j, id);
  });
  loopRemoteCol(i, v.rank, nblocks, blocks, [&](const COT_SpMVCSRRawMat<int, L>& block, L k) {
    const L c = block.col_idx[k];
    const auto* ghosts = findGhosts(block.rank, v.nghosts, v.ghosts);
    if (ghosts == nullptr || ghosts->recv_x[c] != -1) return;
    ghosts->recv_x[c] = id;
    note(*ghosts, c);
  });
}

/// Whether an undone node of a higher rank within distance two comes before node i.
template <class L>
MIVO_FUNCTION bool hasToWait(const AggregateNodes<L>& v, L i) {
  bool wait = false;
  loopRemoteCol(i, v.rank, v.nblocks2, v.blocks2, [&](const COT_SpMVCSRRawMat<int, L>& block, L k) {
    if (wait || v.rank >= block.rank) return;
    const auto* ghosts = findGhosts(block.rank, v.nghosts, v.ghosts);
    wait = ghosts != nullptr && ghosts->recv_x[block.col_idx[k]] == -1;
  });
  return wait;
}

/// Aggregate of an interior node: its strong neighbours, even those of other aggregates, then their
/// undone strong neighbours.
template <class L>
MIVO_FUNCTION void aggregateInterior(const AggregateNodes<L>& v, L i, int id) {
  L top = 0;
  loopLocalCol(i, v.rank, v.nblocks, v.blocks, [&](const COT_SpMVCSRRawMat<int, L>& block, L k) {
    const L j = block.col_idx[k];
    if (block.values[k] == 0 || v.state[j] == -2) return;
    if (v.state[j] == -1) --*v.undone;
    v.owner[j] = v.rank;
    v.state[j] = id;
    v.stack[top++] = j;
  });
  while (top > 0) {
    const L j = v.stack[--top];
    loopLocalCol(j, v.rank, v.nblocks, v.blocks, [&](const COT_SpMVCSRRawMat<int, L>& block, L k) {
      const L c = block.col_idx[k];
      if (block.values[k] != 0 && v.state[c] == -1) join(v, c, id);
    });
  }
}

/// One round over the undone nodes.
template <class L, class Note>
MIVO_FUNCTION void aggregateRound(const AggregateNodes<L>& v, const Note& note) {
  for (L i = 0; i < v.rows; ++i) {
    if (v.state[i] != -1) continue;
    const bool interior = strongEntries(i, true, v, v.nblocks2, v.blocks2) == 0;
    if (!interior && hasToWait(v, i)) continue;
    const int id = (*v.next)++;
    join(v, i, id);
    if (interior) {
      aggregateInterior(v, i, id);
      continue;
    }
    const auto noteId = [&](const COT_RawCommPattern<int, L>& ghosts, L c) { note(ghosts, c, id); };
    joinNeighbours(v, i, id, v.nblocks, v.blocks, noteId);
    joinNeighbours(v, i, id, v.nblocks2, v.blocks2, noteId);
  }
}

}  // namespace sparse

/// Bodies of the kernels that form aggregates; each is one task.
template <class L, class Space>
class SpAggregationImpl {
 public:
  using StrengthView = COT_CSRRawMat<int, L>;
  using Ghosts = COT_RawCommPattern<int, L>;
  using Record = AggregateData<int>;
  using Policy = spm::RangePolicy<Space>;

  static void csr_aggregate(Space& space, StrengthView s, int maxAggregation, L* count, int* aggr,
                            int* naggr, L* stack);
  static void par_csr_aggregate(Space& space, AggregateStep step, AggregateNodes<L> nodes,
                                int* nrecords, Record* records);
  static void par_csr_aggregate_comm_pattern(Space& space, AggregateStep step,
                                             AggregateNodes<L> nodes);
  static void par_csr_aggregate_select(Space& space, const int* nrecords, const Record* records,
                                       int part, int* count, Record* selected);
};

// States as above; count serves as the sizes of the aggregates and then as the map to their final
// numbers.
template <class L, class Space>
void SpAggregationImpl<L, Space>::csr_aggregate(Space& space, StrengthView s, int maxAggregation,
                                                L* count, int* aggr, int* naggr, L* stack) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L i = 0; i < s.rows; ++i) {
      aggr[i] = -2;
      count[i] = 0;
      for (L k = s.row_begin[i]; k < s.row_end[i] && aggr[i] == -2; ++k) {
        if (s.values[k] != 0) aggr[i] = -1;
      }
    }
    int current = 0;
    for (L i = 0; i < s.rows; ++i) {
      if (aggr[i] != -1) continue;
      aggr[i] = current;
      ++count[current];
      L top = 0;
      for (L k = s.row_begin[i]; k < s.row_end[i]; ++k) {
        const L j = s.col_idx[k];
        if (s.values[k] == 0 || aggr[j] == -2) continue;
        // The aggregate that may lose the node keeps its count.
        aggr[j] = current;
        ++count[current];
        stack[top++] = j;
      }
      bool full = false;
      while (top > 0 && !full) {
        const L j = stack[--top];
        for (L k = s.row_begin[j]; k < s.row_end[j] && !full; ++k) {
          const L c = s.col_idx[k];
          if (s.values[k] == 0 || aggr[c] != -1) continue;
          full = maxAggregation >= 1 && count[current] >= maxAggregation;
          if (full) continue;
          aggr[c] = current;
          ++count[current];
        }
      }
      ++current;
    }
    for (L a = 0; a < current; ++a) count[a] = -1;
    int used = 0;
    for (L i = 0; i < s.rows; ++i) {
      if (aggr[i] < 0) continue;
      L& number = count[aggr[i]];
      if (number < 0) number = used++;
      aggr[i] = number;
    }
    *naggr = used;
  });
}

template <class L, class Space>
void SpAggregationImpl<L, Space>::par_csr_aggregate(Space& space, AggregateStep step,
                                                    AggregateNodes<L> nodes, int* nrecords,
                                                    Record* records) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    if (step == AGGREGATE_STEP_INIT) {
      sparse::beginAggregation(nodes);
    } else if (step == AGGREGATE_STEP_AGGREGATE) {
      sparse::aggregateRound(nodes, [=](const Ghosts& view, L c, int id) {
        records[(*nrecords)++] = {view.procId, c, id};
      });
    } else {
      for (int k = 0; k < *nrecords; ++k) {
        const Record& record = records[k];
        if (nodes.state[record.local] == -1) --*nodes.undone;
        nodes.owner[record.local] = record.part;
        nodes.state[record.local] = record.aggregate;
      }
    }
  });
}

template <class L, class Space>
void SpAggregationImpl<L, Space>::par_csr_aggregate_comm_pattern(Space& space, AggregateStep step,
                                                                 AggregateNodes<L> nodes) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    if (step == AGGREGATE_STEP_INIT) {
      sparse::beginAggregation(nodes);
    } else {
      sparse::aggregateRound(nodes,
                             [](const Ghosts& view, L c, int) { view.recv_write_flag[c] = 1; });
    }
  });
}

template <class L, class Space>
void SpAggregationImpl<L, Space>::par_csr_aggregate_select(Space& space, const int* nrecords,
                                                           const Record* records, int part,
                                                           int* count, Record* selected) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    int n = 0;
    for (int k = 0; k < *nrecords; ++k) {
      if (records[k].part != part) continue;
      if (selected != nullptr) selected[n] = records[k];
      ++n;
    }
    *count = n;
  });
}

}  // namespace mivo
