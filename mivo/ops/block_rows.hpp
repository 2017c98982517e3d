// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

#include "mivo/ops/views.hpp"
#include "mivo/spm/function.hpp"

namespace mivo::sparse {

// How kernels walk the rows of a distributed matrix, which are cut into column blocks.

/// Calls f(block, k) for each entry k of row i in the block of part `own`.
template <class L, class Block, class F>
[[gnu::always_inline]] MIVO_FUNCTION inline void loopLocalCol(L i, int own, L nblocks,
                                                              const Block* blocks, const F& f) {
  for (L b = 0; b < nblocks; ++b) {
    if (blocks[b].rank != own) continue;
    for (L k = blocks[b].row_begin[i]; k < blocks[b].row_end[i]; ++k) f(blocks[b], k);
  }
}

/// The same in the blocks of all other parts.
template <class L, class Block, class F>
[[gnu::always_inline]] MIVO_FUNCTION inline void loopRemoteCol(L i, int own, L nblocks,
                                                               const Block* blocks, const F& f) {
  for (L b = 0; b < nblocks; ++b) {
    if (blocks[b].rank == own) continue;
    for (L k = blocks[b].row_begin[i]; k < blocks[b].row_end[i]; ++k) f(blocks[b], k);
  }
}

/// Calls f(a, s, k) for each entry k of row i of two matrices with the same pattern, block by
/// block.
template <class L, class BlockA, class BlockS, class F>
[[gnu::always_inline]] MIVO_FUNCTION inline void rsLoopAllCol(L i, L nblocks, const BlockA* as,
                                                              const BlockS* ss, const F& f) {
  for (L b = 0; b < nblocks; ++b) {
    for (L k = as[b].row_begin[i]; k < as[b].row_end[i]; ++k) f(as[b], ss[b], k);
  }
}

/// The exchange view of a part's columns, null where there is none.
template <class T, class L>
MIVO_FUNCTION const COT_RawCommPattern<T, L>* findGhosts(int part, L count,
                                                         const COT_RawCommPattern<T, L>* views) {
  for (L v = 0; v < count; ++v) {
    if (views[v].procId == part) return views + v;
  }
  return nullptr;
}

/// The value that belongs to a column of a block: one of this rank's own, or of its ghosts.
template <class U, class L>
MIVO_FUNCTION U* valueOfColumn(int part, L col, int own, U* values, L nviews,
                               const COT_RawCommPattern<U, L>* views) {
  if (part == own) return values + col;
  const COT_RawCommPattern<U, L>* view = findGhosts(part, nviews, views);
  return view != nullptr ? view->recv_x + col : nullptr;
}

/// True for entries on the diagonal of the whole matrix. Views hold the low bits of global numbers.
template <class Block, class L>
MIVO_FUNCTION bool onDiagonal(const Block& block, L i, L col) {
  using U = std::make_unsigned_t<L>;
  return static_cast<U>(block.first_row) + static_cast<U>(i) ==
         static_cast<U>(block.first_col) + static_cast<U>(col);
}

}  // namespace mivo::sparse

namespace mivo {

using sparse::loopLocalCol;
using sparse::loopRemoteCol;
using sparse::rsLoopAllCol;

}  // namespace mivo
