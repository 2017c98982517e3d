// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/block_rows.hpp"
#include "mivo/ops/level_transfer_records.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

namespace sparse {

template <class L>
MIVO_FUNCTION bool hasStrong(const COT_SpMVCSRRawMat<int, L>& block, L i) {
  for (L k = block.row_begin[i]; k < block.row_end[i]; ++k) {
    if (block.values[k] != 0) return true;
  }
  return false;
}

/// Whether point i has a strong entry, in any block or in those of other ranks alone.
template <class L>
MIVO_FUNCTION bool hasStrong(const PMISGraph<L>& g, L i, bool remote) {
  for (L b = 0; b < g.nblocks; ++b) {
    if (!(remote && g.blocks[b].rank == g.rank) && hasStrong(g.blocks[b], i)) return true;
  }
  return false;
}

/// Each point counts for those that it depends on.
template <class L>
MIVO_FUNCTION void addMeasures(const PMISGraph<L>& g) {
  using Block = COT_SpMVCSRRawMat<int, L>;
  for (L i = 0; i < g.rows; ++i) {
    loopLocalCol(i, g.rank, g.nblocks, g.blocks, [&](const Block& block, L k) {
      if (block.values[k] != 0) g.measure[block.col_idx[k]] += 1.0;
    });
    loopRemoteCol(i, g.rank, g.nblocks, g.blocks, [&](const Block& block, L k) {
      if (block.values[k] == 0) return;
      const auto* view = findGhosts(block.rank, g.nviews, g.measure_ghosts);
      view->recv_x[block.col_idx[k]] += 1.0;
      view->recv_write_flag[block.col_idx[k]] = 1;
    });
  }
}

/// Marks and membership at the start; returns the number of points in the graph. The measures have
/// their random parts. Modes: 1 starts from the marks given, 3 and 4 make points without strong
/// entries C points.
template <class L>
MIVO_FUNCTION L markInitially(const PMISGraph<L>& g, int mode) {
  L size = 0;
  for (L i = 0; i < g.rows; ++i) {
    bool in = true;
    int& mark = g.cf[i];
    if (mode != 1) {
      in = hasStrong(g, i, false);
      mark = in ? 0 : mode == 3 || mode == 4 ? 1 : -3;
      if (!in) g.measure[i] = 0.0;
    } else if (mark == -3) {
      in = false;
      g.measure[i] = 0.0;
    } else if (mark == -1) {
      mark = 0;
    } else if (mark == -2) {
      in = g.measure[i] >= 1.0 || hasStrong(g, i, true);
      mark = in ? 0 : -1;
    }
    g.graph[i] = in ? 1 : 0;
    if (in) ++size;
  }
  return size;
}

/// Points that can be C points are marked 1, and of two strong neighbours the one of smaller
/// measure 0 again. Equal measures leave both.
template <class L>
MIVO_FUNCTION void chooseIndependentSet(const PMISGraph<L>& g) {
  using Block = COT_SpMVCSRRawMat<int, L>;
  for (L i = 0; i < g.rows; ++i) {
    if (g.graph[i] == 1 && g.measure[i] > 1.0) g.cf[i] = 1;
  }
  for (L v = 0; v < g.nviews; ++v) {
    if (g.cf_ghosts[v].procId == g.rank) continue;
    for (L k = 0; k < g.cf_ghosts[v].nzc_recv_size; ++k) {
      const L c = g.cf_ghosts[v].nzc_recv_indices[k];
      if (g.graph_ghosts[v].recv_x[c] == 1 && g.measure_ghosts[v].recv_x[c] > 1.0) {
        g.cf_ghosts[v].recv_x[c] = 1;
      }
    }
  }
  for (L i = 0; i < g.rows; ++i) {
    const double own = g.measure[i];
    if (g.graph[i] != 1 || !(own > 1.0)) continue;
    // No branch on which of two measures is larger.
    bool smaller = false;
    loopLocalCol(i, g.rank, g.nblocks, g.blocks, [&](const Block& block, L k) {
      const L j = block.col_idx[k];
      const double other = g.measure[j];
      const bool counts = (block.values[k] != 0) & (other > 1.0);
      g.cf[j] &= static_cast<int>(counts & (own > other)) - 1;
      smaller |= counts & (other > own);
    });
    if (smaller) g.cf[i] = 0;
    loopRemoteCol(i, g.rank, g.nblocks, g.blocks, [&](const Block& block, L k) {
      const L c = block.col_idx[k];
      const auto* measures = findGhosts(block.rank, g.nviews, g.measure_ghosts);
      if (block.values[k] == 0 || !(measures->recv_x[c] > 1.0)) return;
      if (g.measure[i] > measures->recv_x[c]) {
        const auto* marks = findGhosts(block.rank, g.nviews, g.cf_ghosts);
        marks->recv_x[c] = 0;
        marks->recv_write_flag[c] = 1;
      } else if (measures->recv_x[c] > g.measure[i]) {
        g.cf[i] = 0;
      }
    });
  }
}

/// Candidates that are left become C points, their neighbours F points.
template <class L>
MIVO_FUNCTION void markPoints(const PMISGraph<L>& g) {
  using Block = COT_SpMVCSRRawMat<int, L>;
  for (L i = 0; i < g.rows; ++i) {
    if (g.graph[i] != 1) continue;
    if (g.measure[i] < 1.0) g.cf[i] = -1;
    if (g.cf[i] >= 1) {
      g.cf[i] = 1;
      continue;
    }
    bool besideC = false;
    loopLocalCol(i, g.rank, g.nblocks, g.blocks, [&](const Block& block, L k) {
      besideC |= (block.values[k] != 0) & (g.cf[block.col_idx[k]] > 0);
    });
    loopRemoteCol(i, g.rank, g.nblocks, g.blocks, [&](const Block& block, L k) {
      const auto* marks = findGhosts(block.rank, g.nviews, g.cf_ghosts);
      besideC |= (block.values[k] != 0) & (marks->recv_x[block.col_idx[k]] > 0);
    });
    if (besideC) g.cf[i] = -1;
  }
}

/// Decided points leave the graph, ghosts too; returns the number of own points that stay.
template <class L>
MIVO_FUNCTION L updateGraph(const PMISGraph<L>& g) {
  L size = 0;
  for (L i = 0; i < g.rows; ++i) {
    if (g.graph[i] != 1) continue;
    if (g.cf[i] == 0) {
      ++size;
    } else {
      g.graph[i] = 0;
      g.measure[i] = 0.0;
    }
  }
  for (L v = 0; v < g.nviews; ++v) {
    if (g.cf_ghosts[v].procId == g.rank) continue;
    for (L k = 0; k < g.cf_ghosts[v].nzc_recv_size; ++k) {
      const L c = g.cf_ghosts[v].nzc_recv_indices[k];
      if (g.graph_ghosts[v].recv_x[c] != 1 || g.cf_ghosts[v].recv_x[c] == 0) continue;
      g.graph_ghosts[v].recv_x[c] = 0;
      g.measure_ghosts[v].recv_x[c] = 0.0;
    }
  }
  return size;
}

}  // namespace sparse

/// Body of the kernel of coarsening by parallel modified independent sets (De Sterck, Yang and
/// Heys 2006).
template <class L, class Space>
class SpPMISImpl {
 public:
  static void par_boomeramg_coarsen_pmis(Space& space, CoarsenPMISStep step, int mode,
                                         PMISGraph<L> g, int* size);
};

template <class L, class Space>
void SpPMISImpl<L, Space>::par_boomeramg_coarsen_pmis(Space& space, CoarsenPMISStep step, int mode,
                                                      PMISGraph<L> g, int* size) {
  spm::parallel_for(spm::RangePolicy<Space>(space, 0, 1), [=] MIVO_FUNCTION(L) {
    switch (step) {
      case COARSEN_PMIS_STEP_MEASURE:
        sparse::addMeasures(g);
        break;
      case COARSEN_PMIS_STEP_INITIAL:
        *size = sparse::markInitially(g, mode);
        break;
      case COARSEN_PMIS_STEP_INDEPENDENT_SET:
        sparse::chooseIndependentSet(g);
        break;
      case COARSEN_PMIS_STEP_MARK:
        sparse::markPoints(g);
        break;
      case COARSEN_PMIS_STEP_UPDATE_GRAPH:
        *size = sparse::updateGraph(g);
        break;
    }
  });
}

}  // namespace mivo
