// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/host/forms.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo::sparse {

/// y_i += alpha (A x)_i for the n rows i of the list, of a matrix that has few others, such as the
/// columns of one neighbour in a distributed matrix.
template <class T, class I>
void addFilledRows(const T& alpha, I n, const I* list, const COT_CSRRawMat<T, I>& a, const T* x,
                   T* y) {
  for (I k = 0; k < n; ++k) {
    const I i = list[k];
    const T s = alpha * rowDot(a.row_begin[i], a.row_end[i], a.col_idx, a.values, x, T(0));
    // The factor 1 of an axpy stays: it can change a complex number that is not finite.
    y[i] += s * T(1);
  }
}

}  // namespace mivo::sparse
