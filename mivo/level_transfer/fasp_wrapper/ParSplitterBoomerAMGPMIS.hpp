// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParSplitter.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Splitting by parallel modified independent sets: "SplitterBoomerAMGPMIS", see
/// `LevelTransferOps_RS::par_BoomerAMGCoarsenPMIS`. No keys.
template <class T, class G, class L>
class MIVO_API ParSplitterBoomerAMGPMIS : public ParSplitterT<T, G, L> {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using Marks = ParMatrixT<int, G, L>;

  std::int32_t CF_init = 0;  ///< initial marks

  ~ParSplitterBoomerAMGPMIS() override;

  void create(const json& params);
  void split(const Matrix& A, Strength& S, Marks& cf) override;
};

MIVO_EXTERN_SCALARS(ParSplitterBoomerAMGPMIS, long, int)

}  // namespace mivo
