// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParInterpolator.hpp"
#include "mivo/operators/ParLevelTransfer.hpp"
#include "mivo/operators/ParSplitter.hpp"
#include "mivo/operators/ParStrengther.hpp"
#include "mivo/utils/TickMeter.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Classical coarsening of three parts that JSON names: "LevelTransferBoomerAMG". By default
/// classical strength, splitting by parallel modified independent sets (De Sterck, Yang and Heys
/// 2006) and extended+i interpolation (De Sterck, Falgout, Nolting and Yang 2008). R = P^T. For
/// scalar elliptic problems, also with jumps and anisotropy, on any number of ranks.
///
/// Keys: "strengther", "splitter" and "interpolator" (objects), the parts, of the types
/// "StrengtherBoomerAMG", "SplitterBoomerAMGPMIS" and "InterpolatorBoomerAMGExtendedPI" unless they
/// name others; "verbose" (int, 0), above 0 the times of the parts. Sorts the rows of A.
template <class T, class G, class L>
class MIVO_API ParLevelTransferBoomerAMG : public ParLevelTransferT<T, G, L> {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;

  /// What a transfer is made of.
  struct MIVO_API Impl {
    Matrix A;
    ParCSRMatrixT<int, G, L> S;  ///< strength of connection
    ParMatrixT<int, G, L> cf;    ///< splitting
    G ncoarse = 0;
    Matrix P;
    Matrix R;
    Matrix Ac;  ///< R A P, when it is kept
  };

  std::shared_ptr<Impl> impl;  ///< of the last call, when it is kept
  bool keep = false;           ///< keep `impl` and form the coarse operator in it
  std::shared_ptr<ParStrengtherT<T, G, L>> strengther;
  std::shared_ptr<ParSplitterT<T, G, L>> splitter;
  std::shared_ptr<ParInterpolatorT<T, G, L>> interpolator;
  std::int32_t verbose = 0;
  TickMeter strength_time;
  TickMeter split_time;
  TickMeter interp_time;

  ~ParLevelTransferBoomerAMG() override;

  void create(const json& params);
  void transfer_operators(const Matrix& A, Matrix& P, Matrix& R) override;
};

MIVO_EXTERN_SCALARS(ParLevelTransferBoomerAMG, long, int)

}  // namespace mivo
