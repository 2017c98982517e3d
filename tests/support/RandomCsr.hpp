// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <numeric>
#include <ostream>
#include <random>
#include <utility>
#include <vector>

#include "mivo/ops/views.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/values.hpp"

namespace mivo::test {

/// CSR matrix in host memory, the plain form in which references are computed and results compared.
/// Entries are added row by row.
template <class T, class I = int>
struct HostCsr {
  I rows = 0;
  I cols = 0;
  std::vector<I> rowptr{0};
  std::vector<I> col_idx;
  std::vector<T> values;

  void push(I col, const T& value) {
    col_idx.push_back(col);
    values.push_back(value);
  }
  /// Adds to an entry of the open row, which is made at its end when missing.
  void accumulate(I col, const T& value) {
    for (std::size_t k = rowptr.back(); k < col_idx.size(); ++k) {
      if (col_idx[k] == col) {
        values[k] += value;
        return;
      }
    }
    push(col, value);
  }
  void endRow() {
    ++rows;
    rowptr.push_back(static_cast<I>(col_idx.size()));
  }

  /// Calls fill(i, matrix) for each row, which pushes its entries.
  template <class Fill>
  static HostCsr build(I rows, I cols, const Fill& fill) {
    HostCsr out;
    out.cols = cols;
    for (I i = 0; i < rows; ++i) {
      fill(i, out);
      out.endRow();
    }
    return out;
  }

  /// Of row-major values; zeros are stored on the diagonal alone.
  static HostCsr fromDense(I rows, I cols, const std::vector<T>& dense) {
    return build(rows, cols, [&](I i, HostCsr& out) {
      for (I j = 0; j < cols; ++j) {
        const T& v = dense[i * cols + j];
        if (!isZero(v) || i == j) out.push(j, v);
      }
    });
  }

  std::vector<std::pair<I, T>> row(I i) const {
    std::vector<std::pair<I, T>> out;
    for (I k = rowptr[i]; k < rowptr[i + 1]; ++k) out.emplace_back(col_idx[k], values[k]);
    return out;
  }
  std::vector<T> dense() const {
    std::vector<T> out(static_cast<std::size_t>(rows) * cols, T(0));
    for (I i = 0; i < rows; ++i) {
      for (const auto& [j, v] : row(i)) out[i * cols + j] += v;
    }
    return out;
  }
  HostCsr sorted() const {
    return build(rows, cols, [&](I i, HostCsr& out) {
      auto entries = row(i);
      std::stable_sort(entries.begin(), entries.end(),
                       [](const auto& x, const auto& y) { return x.first < y.first; });
      for (const auto& [j, v] : entries) out.push(j, v);
    });
  }
  /// Keeps the entries for which keep(row, column, value) holds, with columns moved by `shift`.
  template <class Keep>
  HostCsr filtered(const Keep& keep, I shift = 0) const {
    return build(rows, cols, [&](I i, HostCsr& out) {
      for (const auto& [j, v] : row(i)) {
        if (keep(i, j, v)) out.push(j + shift, v);
      }
    });
  }
  HostCsr transposed() const {
    return build(cols, rows, [&](I j, HostCsr& out) {
      for (I i = 0; i < rows; ++i) {
        for (const auto& [c, v] : row(i)) {
          if (c == j) out.push(i, v);
        }
      }
    });
  }
  /// The same shape with arrays that a kernel has yet to write.
  HostCsr blank() const {
    HostCsr out = *this;
    std::fill(out.rowptr.begin(), out.rowptr.end(), I(77));
    std::fill(out.col_idx.begin(), out.col_idx.end(), I(-1));
    std::fill(out.values.begin(), out.values.end(), T(99));
    return out;
  }

  /// Arrays only; the column count of a result is the caller's.
  friend bool operator==(const HostCsr& a, const HostCsr& b) {
    return a.rowptr == b.rowptr && a.col_idx == b.col_idx && a.values == b.values;
  }
  friend void PrintTo(const HostCsr& a, std::ostream* os) {
    for (I i = 0; i < a.rows; ++i) {
      *os << "\n  " << i << ':';
      for (const auto& [j, v] : a.row(i)) *os << " (" << j << ", " << v << ')';
    }
  }
};

/// Unsorted rows without duplicates, every fifth one empty, one in seven full, the others short;
/// about one value in nine is a stored zero.
template <class T, class I = int>
HostCsr<T, I> randomCsr(std::mt19937& rng, I rows, I cols) {
  std::vector<I> columns(cols);
  std::iota(columns.begin(), columns.end(), I(0));
  return HostCsr<T, I>::build(rows, cols, [&](I i, HostCsr<T, I>& out) {
    std::shuffle(columns.begin(), columns.end(), rng);
    I n = std::min<I>(cols, static_cast<I>(rng() % 8));
    if (i % 7 == 5) n = cols;
    if (i % 5 == 3) n = 0;
    for (I k = 0; k < n; ++k) out.push(columns[k], smallValue<T>(rng));
  });
}

/// Copy of a `HostCsr` on a device.
template <class T, class I = int>
class DeviceCsr {
 public:
  DeviceCsr(const Device& device, const HostCsr<T, I>& a)
      : rows_(a.rows),
        cols_(a.cols),
        nnz_(static_cast<I>(a.values.size())),
        rowptr_(device, a.rowptr),
        col_idx_(device, a.col_idx),
        values_(device, a.values) {}

  const I* rowptr() const { return rowptr_.data(); }
  I* col_idx() const { return col_idx_.data(); }
  T* values() const { return values_.data(); }
  COT_CSRRawMat<T, I> view() const { return viewAs<COT_CSRRawMat<T, I>>(); }
  COT_MergeCSRRawMat<T, I> mergeView(I first_row, I first_col) const {
    return viewAs<COT_MergeCSRRawMat<T, I>>(first_row, first_col);
  }
  COT_SpMVCSRRawMat<T, I> blockView(I first_row, I first_col, int rank = 0, T* x = nullptr) const {
    return viewAs<COT_SpMVCSRRawMat<T, I>>(first_row, first_col, rank, x, nullptr);
  }
  HostCsr<T, I> host() const {
    return {rows_, cols_, rowptr_.values(), col_idx_.values(), values_.values()};
  }

 private:
  template <class View, class... Rest>
  View viewAs(Rest... rest) const {
    I* const begins = rowptr_.data();
    return {rows_, cols_, nnz_, begins, begins + 1, col_idx(), values(), rest...};
  }

  I rows_, cols_, nnz_;
  DeviceArray<I> rowptr_, col_idx_;
  DeviceArray<T> values_;
};

/// Runs a two-pass operation `call(view of the result)` from uninitialised row pointers to the end.
template <class T, class I, class Call>
HostCsr<T, I> twoPass(const Device& device, I rows, I cols, const Call& call) {
  HostCsr<T, I> shape;
  shape.rows = rows;
  shape.cols = cols;
  shape.rowptr.resize(rows + 1);
  const DeviceCsr<T, I> counted(device, shape.blank());
  auto view = counted.view();
  view.col_idx = nullptr;
  view.values = nullptr;
  call(view);
  shape.rowptr = counted.host().rowptr;
  shape.col_idx.assign(shape.rowptr.back(), -1);
  shape.values.assign(shape.rowptr.back(), T(99));
  const DeviceCsr<T, I> filled(device, shape);
  call(filled.view());
  return filled.host();
}

/// Rows and columns of the random matrices: empty, tiny, and around the lengths at which loops are
/// unrolled.
inline const std::vector<std::pair<int, int>>& testShapes() {
  static const std::vector<std::pair<int, int>> shapes = {{0, 0}, {0, 3},   {1, 1},   {2, 5},
                                                          {7, 2}, {31, 33}, {33, 31}, {97, 64}};
  return shapes;
}

}  // namespace mivo::test
