// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "mivo/utils/export.hpp"

namespace mivo {

/// Statistics of a distributed matrix, as one row of a table. `sparse` is nnzs / rows^2, also for a
/// rectangular matrix.
template <class G>
struct MIVO_API MatrixMetaT {
  G rows = 0;
  G cols = 0;
  G nnzs = 0;
  double sparse = 0;
  double row_nnz_min = 0, row_nnz_max = 0, row_nnz_sum = 0, row_nnz_avg = 0;  ///< entries per row
  double row_sum_min = 0, row_sum_max = 0, row_sum_sum = 0, row_sum_avg = 0;  ///< sums of rows

  static std::string getTableHead();
  std::string getString() const;
};

extern template struct MatrixMetaT<int>;
extern template struct MatrixMetaT<long>;

}  // namespace mivo
