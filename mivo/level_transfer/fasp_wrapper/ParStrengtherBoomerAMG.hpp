// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParStrengther.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Classical strength of connection: "StrengtherBoomerAMG", see
/// `LevelTransferOps_RS::par_BoomerAMGStrength`.
///
/// Keys: "strong_threshold" (0.25), share of the extreme entry of a row; "max_row_sum" (0.9), rows
/// whose sum exceeds that share of the diagonal have no strong entry, unless it is 1 or more;
/// "num_functions" (int, 1), unknowns a point, numbered in turn.
template <class T, class G, class L>
class MIVO_API ParStrengtherBoomerAMG : public ParStrengtherT<T, G, L> {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using Marks = ParMatrixT<int, G, L>;

  double strong_threshold = 0.25;
  double max_row_sum = 0.9;
  std::int32_t num_functions = 1;

  ~ParStrengtherBoomerAMG() override;

  void create(const json& params);
  void strength(const Matrix& A, const Vector& diag, Strength& S) override;
};

MIVO_EXTERN_SCALARS(ParStrengtherBoomerAMG, long, int)

}  // namespace mivo
