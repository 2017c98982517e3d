// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/Device.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class I, class Space>
class RowListOpsImpl;

/// Products with matrices most of whose rows are empty, such as the columns of one neighbour in a
/// distributed matrix. Internal to the library. Conventions of `SpBlasOps`; T is one of the six
/// value types, I is int.
template <class T, class I>
class RowListOps {
 public:
  /// y_i += alpha (A x)_i for the n rows i of the list
  static void addProduct(const Device& device, T alpha, I n, const I* list, const I* rowptr,
                         const I* col_idx, const T* values, const T* x, T* y);
  /// y_i += value for the empty rows i
  static void addToEmptyRows(const Device& device, I rows, const I* rowptr, T value, T* y);

 private:
  template <class Space>
  using Worker = RowListOpsImpl<T, I, Space>;
};

}  // namespace mivo
