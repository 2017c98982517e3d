// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/RowListOps.hpp"

#include "mivo/ops/RowListOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

template <class T, class I>
void RowListOps<T, I>::addProduct(const Device& device, T alpha, I n, const I* list,
                                  const I* rowptr, const I* col_idx, const T* values, const T* x,
                                  T* y) {
  MIVO_DISPATCH(addProduct, alpha, n, list, rowptr, col_idx, values, x, y);
}

template <class T, class I>
void RowListOps<T, I>::addToEmptyRows(const Device& device, I rows, const I* rowptr, T value,
                                      T* y) {
  MIVO_DISPATCH(addToEmptyRows, rows, rowptr, value, y);
}

MIVO_INSTANCE_VALUES(RowListOps, int)

}  // namespace mivo
