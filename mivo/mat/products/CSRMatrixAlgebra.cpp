// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/products/two_pass.hpp"
#include "mivo/ops/BlasOps.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

template <class T, class I>
void CSRMatrixT<T, I>::sortRows() {
  if (getNnz() == 0) return;
  SpBlasOps<T, I>::csr_sort_rows(getDevice(), getRows(), getCols(), getRowPtr(), getColIdx(),
                                 getValues());
}

template <class T, class I>
void CSRMatrixT<T, I>::scale(CSRMatrixT& m, T a) {
  if (m.getNnz() == 0) return;
  BlasOps<T, I>::scal(m.getDevice(), m.getNnz(), a, m.getValues());
}

template <class T, class I>
void CSRMatrixT<T, I>::aAxpby(T a, const Vector& x, T b, Vector& y) const {
  if (getNnz() == 0 || x.getSize() == 0) {
    y = Vector();
    return;
  }
  if (isZero(b)) y.resize(getRows(), x.getCols(), getDevice());
  MIVO_CHECK(x.getCols() == 1) << "aAxpby: x.cols!= 1";
  MIVO_CHECK(getCols() == x.getRows()) << "aAxpby: A.cols != x.rows";
  MIVO_CHECK(getDevice().type == x.getDevice().type) << "aAxpby: A and x must on the same device";
  MIVO_CHECK(getRows() == y.getRows()) << "aAxpby: A.rows!= y.rows";
  MIVO_CHECK(getDevice().type == y.getDevice().type) << "aAxpby: A and y must on the same device";
  SpBlasOps<T, I>::aAxpby(getDevice(), a, getRows(), getCols(), getRowPtr(), getRowPtr() + 1,
                          getColIdx(), getValues(), x.getData(), b, y.getData());
}

namespace {

template <class T, class I>
void checkFactors(const CSRMatrixT<T, I>& A, const CSRMatrixT<T, I>& B) {
  MIVO_CHECK(A.getDevice().type == B.getDevice().type) << "multiply: mat1.device!= mat2.device";
  MIVO_CHECK(A.getCols() == B.getRows()) << "multiply: mat1.col1 != mat2.row2";
}

}  // namespace

template <class T, class I>
void CSRMatrixT<T, I>::multiply(const CSRMatrixT& B, CSRMatrixT& C) const {
  if (getNnz() == 0 || B.getNnz() == 0) {
    C = CSRMatrixT();
    return;
  }
  checkFactors(*this, B);
  const Device device = getDevice();
  const View a = getRawMat();
  const View b = B.getRawMat();
  IndexVectorT marker;
  marker.create(b.cols, 1, device);
  buildTwoPass(C, a.rows, b.cols, device, [&](View c) {
    SpBlasOps<T, I>::csr_matmul(device, a.rows, a.cols, b.cols, a.row_begin, a.col_idx, a.values,
                                b.row_begin, b.col_idx, b.values, c.row_begin, c.col_idx, c.values,
                                marker.getData());
  });
}

template <class T, class I>
void CSRMatrixT<T, I>::multiplySum(const std::vector<std::pair<CSRMatrixT, CSRMatrixT>>& terms,
                                   CSRMatrixT& C) {
  // Handles, so that C may be a factor.
  std::vector<std::pair<CSRMatrixT, CSRMatrixT>> used;
  for (const auto& term : terms) {
    if (term.first.getNnz() > 0 && term.second.getNnz() > 0) used.push_back(term);
  }
  if (used.empty()) {
    C = CSRMatrixT();
    return;
  }
  if (used.size() == 1) return used[0].first.multiply(used[0].second, C);
  const CSRMatrixT& A = used[0].first;
  const CSRMatrixT& B = used[0].second;
  const Device device = A.getDevice();
  const I count = static_cast<I>(used.size());
  MatrixT<View, I, MatrixLayoutRowMajor> left, right;
  left.create(count, 1, Device());
  right.create(count, 1, Device());
  for (std::size_t t = 0; t < used.size(); ++t) {
    checkFactors(used[t].first, used[t].second);
    MIVO_CHECK(used[t].first.getRows() == A.getRows() && used[t].second.getCols() == B.getCols())
        << "add: A and B must has same dim";
    MIVO_CHECK(used[t].first.getDevice().type == device.type)
        << "add: A and B must on the same device";
    left.getData()[t] = used[t].first.getRawMat();
    right.getData()[t] = used[t].second.getRawMat();
  }
  left = left.toDevice(device);
  right = right.toDevice(device);
  IndexVectorT flags, marker, place;
  flags.create(count, 1, device);
  marker.create(B.getCols(), 1, device);
  place.create(B.getCols(), 1, device);
  CSRMatrixT row;  // of the widest there may be; its memory is touched as far as it is used
  row.create(0, B.getCols(), B.getCols(), device);
  View scratch = row.getRawMat();
  scratch.row_begin = place.getData();
  buildTwoPass(C, A.getRows(), B.getCols(), device, [&](View c) {
    SpBlasOps<T, I>::csr_matmul_vec(device, A.getRows(), B.getCols(), count, left.getData(),
                                    right.getData(), c, flags.getData(), marker.getData(), scratch);
  });
}

namespace {

/// C = s M with M's pattern. M keeps its values when C shares them.
template <class T, class I>
void scaledCopy(T s, const CSRMatrixT<T, I>& m, CSRMatrixT<T, I>& C) {
  CSRMatrixT<T, I> result;
  if (C.getColIdx() != m.getColIdx()) result = C;
  m.deepCopy(result);
  CSRMatrixT<T, I>::scale(result, s);
  C = result;
}

}  // namespace

template <class T, class I>
void CSRMatrixT<T, I>::matadd(T a, const CSRMatrixT& A, T b, const CSRMatrixT& B, CSRMatrixT& C) {
  if (A.getNnz() == 0) return scaledCopy(b, B, C);
  if (B.getNnz() == 0) return scaledCopy(a, A, C);
  MIVO_CHECK(A.getRows() == B.getRows() && A.getCols() == B.getCols())
      << "add: A and B must has same dim";
  MIVO_CHECK(A.getDevice().type == B.getDevice().type) << "add: A and B must on the same device";
  const Device device = A.getDevice();
  const std::size_t capacity =
      static_cast<std::size_t>(A.getNnz()) + static_cast<std::size_t>(B.getNnz());
  MIVO_CHECK(capacity <= static_cast<std::size_t>(std::numeric_limits<I>::max()))
      << "add: " << capacity << " entries exceed the index type";
  CSRMatrixT scratch;
  scratch.create(A.getRows(), A.getCols(), static_cast<I>(capacity), device);
  const View viewA = A.getRawMat();
  const View viewB = B.getRawMat();
  if (C.getRows() != A.getRows() || C.getCols() != A.getCols()) C = CSRMatrixT();
  buildTwoPass(C, viewA.rows, viewA.cols, device, [&](View c) {
    SpBlasOps<T, I>::csr_matadd(device, a, viewA, b, viewB, scratch.getRawMat(), c);
  });
}

template <class T, class I>
void CSRMatrixT<T, I>::axpbyDiag(T a, const Vector& d1, T b, const Vector& d2, CSRMatrixT& out,
                                 I firstRow, I firstCol) const {
  const Device device = getDevice();
  const View m = getRawMat();
  const COT_MergeCSRRawMat<T, I> source{m.rows,    m.cols,   m.nnz,    m.row_begin, m.row_end,
                                        m.col_idx, m.values, firstRow, firstCol};
  buildFresh(out, m.rows, m.cols, device, [&](View r) {
    const COT_MergeCSRRawMat<T, I> result{r.rows,    r.cols,   r.nnz,    r.row_begin, r.row_end,
                                          r.col_idx, r.values, firstRow, firstCol};
    SpBlasOps<T, I>::csr_axpby_diag(device, a, d1.getData(), b, d2.getData(), source, result);
  });
}

template <class T, class I>
CSRMatrixT<T, I> CSRMatrixT<T, I>::sparsify(T threshold) const {
  const Device device = getDevice();
  const View source = getRawMat();
  CSRMatrixT out;
  buildFresh(out, source.rows, source.cols, device, [&](View result) {
    SpBlasOps<T, I>::csr_sparsify(device, source, threshold, nullptr, result);
  });
  return out;
}

template <class T, class I>
bool CSRMatrixT<T, I>::operator==(const CSRMatrixT& other) const {
  MIVO_CHECK(getDevice().type == other.getDevice().type);
  if (getRows() != other.getRows() || getCols() != other.getCols()) return false;
  CSRMatrixT difference;
  matadd(T(1), *this, T(-1), other, difference);
  using R = RealType<T>;
  return BlasOps<T, I>::abs_sum(difference.getDevice(), difference.getNnz(), difference.getValues(),
                                R(2)) == R(0);
}

MIVO_INSTANCE_VALUES(CSRMatrixT, int)

}  // namespace mivo
