// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/operators.hpp"

namespace mivo::test {

/// Row-major dense values as a sparse matrix of one rank: zeros off the diagonal are not stored.
template <class T>
ParCSRMatrixT<T, long, int> parCsrOf(const Device& device, int rows, int cols,
                                     const std::vector<T>& dense) {
  std::vector<int> rowptr{0}, columns;
  std::vector<T> values;
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < cols; ++j) {
      const T v = dense[static_cast<std::size_t>(i) * static_cast<std::size_t>(cols) +
                        static_cast<std::size_t>(j)];
      if (isZero(v) && i != j) continue;
      columns.push_back(j);
      values.push_back(v);
    }
    rowptr.push_back(static_cast<int>(columns.size()));
  }
  CSRMatrixT<T, int> local;
  local.create(rows, cols, static_cast<int>(columns.size()), Device());
  std::copy(rowptr.begin(), rowptr.end(), local.getRowPtr());
  std::copy(columns.begin(), columns.end(), local.getColIdx());
  std::copy(values.begin(), values.end(), local.getValues());
  ParCSRMatrixT<T, long, int> out;
  out.createSeq(local, kCommSelf);
  return out.toDevice(device);
}

/// All entries as row-major dense values; for a matrix of one rank.
template <class T, class G>
std::vector<T> denseOf(const ParCSRMatrixT<T, G, int>& m) {
  const CSRMatrixT<T, int> local = m.getLocalMatrix(-1).toDevice(Device());
  const std::size_t cols = static_cast<std::size_t>(m.getCols());
  std::vector<T> out(static_cast<std::size_t>(m.getRows()) * cols, T(0));
  for (int i = 0; i < local.getRows() && local.getNnz() > 0; ++i) {
    for (int k = local.getRowPtr()[i]; k < local.getRowPtr()[i + 1]; ++k) {
      out[static_cast<std::size_t>(i) * cols + static_cast<std::size_t>(local.getColIdx()[k])] +=
          local.getValues()[k];
    }
  }
  return out;
}

}  // namespace mivo::test
