// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

/// Fills a shaped matrix whose number of entries is unknown: `kernel(view)` runs once without
/// columns and values and fills the row pointers, then once more to write the entries.
template <class T, class I, class Kernel>
void fillTwoPass(CSRMatrixT<T, I>& shaped, const Kernel& kernel) {
  kernel(shaped.getRawMat());
  const I nnz = shaped.evaluateNnzs();  // -1 where the kernels' sums do not fit
  MIVO_CHECK(nnz >= 0) << "CSRMatrix: the entries of a result exceed the index type";
  shaped.resizeNnz(nnz, 0);
  if (nnz > 0) kernel(shaped.getRawMat());
}

/// Builds a sparse result by `fillTwoPass`.
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
  fillTwoPass(result, kernel);
  out = result;
}

/// The same in a fresh object, to which `out` moves: its other handles stay as they are.
template <class T, class I, class Kernel>
void buildFresh(CSRMatrixT<T, I>& out, I rows, I cols, const Device& device, const Kernel& kernel) {
  CSRMatrixT<T, I> result;
  result.create(rows, cols, 0, device);
  fillTwoPass(result, kernel);
  out = result;
}

}  // namespace mivo
