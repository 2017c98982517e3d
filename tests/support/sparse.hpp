// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "tests/support/RandomCsr.hpp"
#include "tests/support/dense.hpp"

namespace mivo::test {

/// A matrix on a device with the arrays of a plain one.
template <class T, class I>
CSRMatrixT<T, I> sparseOf(const Device& device, const HostCsr<T, I>& a) {
  CSRMatrixT<T, I> m;
  m.create(a.rows, a.cols, static_cast<I>(a.values.size()), device);
  const Device host;
  if (a.rows > 0) {
    host.rawCopyTo(a.rowptr.size() * sizeof(I), a.rowptr.data(), device, m.getRowPtr());
  }
  if (!a.values.empty()) {
    host.rawCopyTo(a.col_idx.size() * sizeof(I), a.col_idx.data(), device, m.getColIdx());
    host.rawCopyTo(a.values.size() * sizeof(T), a.values.data(), device, m.getValues());
  }
  return m;
}

/// The arrays of a matrix, from whatever device.
template <class T, class I>
HostCsr<T, I> plainOf(const CSRMatrixT<T, I>& m) {
  const auto nnz = static_cast<std::size_t>(m.getNnz());
  HostCsr<T, I> out{m.getRows(), m.getCols(),
                    std::vector<I>(static_cast<std::size_t>(m.getRows()) + 1, 0),
                    std::vector<I>(nnz), std::vector<T>(nnz)};
  const Device host;
  if (m.getRows() > 0) {
    m.getDevice().rawCopyTo(out.rowptr.size() * sizeof(I), m.getRowPtr(), host, out.rowptr.data());
  }
  if (m.getNnz() > 0) {
    m.getDevice().rawCopyTo(nnz * sizeof(I), m.getColIdx(), host, out.col_idx.data());
    m.getDevice().rawCopyTo(nnz * sizeof(T), m.getValues(), host, out.values.data());
  }
  return out;
}

/// A plain matrix from rows of {column, value}.
template <class T>
HostCsr<T> plainRows(int cols, const std::vector<std::vector<std::pair<int, T>>>& rows) {
  HostCsr<T> out;
  out.cols = cols;
  for (const auto& row : rows) {
    for (const auto& entry : row) out.push(entry.first, entry.second);
    out.endRow();
  }
  return out;
}

}  // namespace mivo::test
