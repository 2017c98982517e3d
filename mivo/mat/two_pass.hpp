// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

/// Builds a sparse result whose size is unknown: `kernel(view)` runs once without columns and
/// values and fills the row pointers, then once more to write the entries.
///
/// A matrix without entries is built in place, for all its handles. One that holds entries stays as
/// it is for its other handles, and `out` moves to a fresh object at the end: it may be an operand
/// of the operation.
template <class T, class I, class Kernel>
void buildTwoPass(CSRMatrixT<T, I>& out, I rows, I cols, const Device& device,
                  const Kernel& kernel) {
  CSRMatrixT<T, I> result;
  if (out.getColIdx() == nullptr) result = out;
  result.resize(rows, cols, device);
  kernel(result.getRawMat());
  const I nnz = result.evaluateNnzs();  // -1 where the kernels' sums do not fit
  MIVO_CHECK(nnz >= 0) << "CSRMatrix: the entries of a result exceed the index type";
  result.resizeNnz(nnz, 0);
  if (nnz > 0) kernel(result.getRawMat());
  out = result;
}

}  // namespace mivo
