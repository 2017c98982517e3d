// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "mivo/mat/CSRMatrix.hpp"

namespace mivo {

/// The factors of R A P as one rank holds them, all on one device. The rows of A are this rank's,
/// followed by those of others that R needs. Internal.
template <class T, class I>
class TripleProduct {
 public:
  using Local = CSRMatrixT<T, I>;

  Local R;                    ///< columns are rows of A
  I ownRows = 0;              ///< of A
  std::vector<Local> blocks;  ///< this rank's rows of A side by side, columns are rows of P
  Local ghostRows;            ///< further rows of A, columns are rows of P
  Local P;
  I ownCols = 0;  ///< columns of P whose results are put into `own`

  /// own and rest, whose columns begin at 0 each, make up (R A) P, without the matrix R A. Columns
  /// stand in order of first appearance (Gustavson 1978).
  void multiply(Local& own, Local& rest) const;
};

}  // namespace mivo
