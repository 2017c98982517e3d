// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/views.hpp"

namespace mivo {

/// Base of the records that hold the arguments of one kernel, filled by name. Their
/// `visitMembers(f)` calls f with the arrays and views, the length of a table before it, for those
/// who check what a kernel is given.
struct KernelArguments {};

/// R A P, made row by row from row *reached onward. The rows of A are those of the blocks, then the
/// ghosts; results in the columns of `c` go there, those beyond to `rest`.
template <class T, class I>
struct MIVO_API TripleProductRows : KernelArguments {
  COT_CSRRawMat<T, I> r;
  I own_rows = 0;  ///< of A in the blocks
  I nblocks = 0;
  const COT_MergeCSRRawMat<T, I>* blocks = nullptr;  ///< their columns stand from first_col on
  COT_CSRRawMat<T, I> ghosts;
  COT_CSRRawMat<T, I> p;
  COT_CSRRawMat<T, I> c;
  I c_room = 0;  ///< entries for which there is room
  COT_CSRRawMat<T, I> rest;
  I rest_room = 0;
  I* reached = nullptr;
  I* marker_a = nullptr;      ///< P.rows elements that keep their content between calls
  I* marker_p = nullptr;      ///< P.cols elements that do
  COT_CSRRawMat<T, I> row_a;  ///< scratch for P.rows entries

  template <class F>
  void visitMembers(const F& f) const {
    f(r, nblocks, blocks, ghosts, p, c, rest, reached, marker_a, marker_p, row_a);
  }
};

}  // namespace mivo
