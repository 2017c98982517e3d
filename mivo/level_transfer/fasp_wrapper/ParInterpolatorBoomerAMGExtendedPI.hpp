// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParInterpolator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Extended+i interpolation with truncation: "InterpolatorBoomerAMGExtendedPI", see
/// `LevelTransferOps_RS::par_BoomerAMGInterpolationExtendedPI`.
///
/// Keys: "trunc_factor" (0), share of a row's greatest modulus below which entries are dropped;
/// "p_max_elmts" (int, 4), most entries of a row, no limit below 1; "num_functions" (int, 1), has
/// no effect, since nothing tells the function of a point here.
template <class T, class G, class L>
class MIVO_API ParInterpolatorBoomerAMGExtendedPI : public ParInterpolatorT<T, G, L> {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using Marks = ParMatrixT<int, G, L>;

  double trunc_factor = 0;
  std::int32_t p_max_elmts = 4;
  std::int32_t num_functions = 1;

  ~ParInterpolatorBoomerAMGExtendedPI() override;

  void create(const json& params);
  void interpolate(const Matrix& A, const Strength& S, const Marks& cf, G& ncoarse,
                   Matrix& P) override;
};

MIVO_EXTERN_SCALARS(ParInterpolatorBoomerAMGExtendedPI, long, int)

}  // namespace mivo
