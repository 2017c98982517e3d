// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/sparse_rows.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class I, class Space>
class RowListOpsImpl {
 public:
  using Policy = spm::RangePolicy<Space>;

  static void addProduct(Space& space, T alpha, I n, const I* list, const I* rowptr,
                         const I* col_idx, const T* values, const T* x, T* y);
  static void addToEmptyRows(Space& space, I rows, const I* rowptr, T value, T* y);
};

template <class T, class I, class Space>
void RowListOpsImpl<T, I, Space>::addProduct(Space& space, T alpha, I n, const I* list,
                                             const I* rowptr, const I* col_idx, const T* values,
                                             const T* x, T* y) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I k) {
    const I i = list[k];
    const T s = alpha * sparse::rowDot(rowptr[i], rowptr[i + 1], col_idx, values, x, T(0));
    // The factor 1 of an axpy stays: it can change a complex number that is not finite.
    y[i] += s * T(1);
  });
}

template <class T, class I, class Space>
void RowListOpsImpl<T, I, Space>::addToEmptyRows(Space& space, I rows, const I* rowptr, T value,
                                                 T* y) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    if (rowptr[i] == rowptr[i + 1]) y[i] += value;
  });
}

MIVO_CUDA_VALUES(RowListOpsImpl, int)

}  // namespace mivo
