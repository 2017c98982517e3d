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

/// Direct interpolation: "InterpolatorAMGCLDirect", see `LevelTransferOps_RS::par_interpolation`.
///
/// Key: "trunc_factor" (0.2), the eps_trunc of that.
template <class T, class G, class L>
class MIVO_API ParInterpolatorAMGCLDirect : public ParInterpolatorT<T, G, L> {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using Marks = ParMatrixT<int, G, L>;

  bool do_trunc = true;
  double eps_trunc = 0.2;
  std::int32_t c_mark = 1;
  std::int32_t f_mark = -1;

  ~ParInterpolatorAMGCLDirect() override;

  void create(const json& params);
  void interpolate(const Matrix& A, const Strength& S, const Marks& cf, G& ncoarse,
                   Matrix& P) override;
};

MIVO_EXTERN_SCALARS(ParInterpolatorAMGCLDirect, long, int)

}  // namespace mivo
