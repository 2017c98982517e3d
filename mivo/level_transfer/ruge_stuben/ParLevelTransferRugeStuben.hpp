// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/level_transfer/ruge_stuben/SeqLevelTransferRugeStuben.hpp"

namespace mivo {

/// Classical coarsening on distributed matrices: "LevelTransferRugeStuben", with the keys of
/// `SeqLevelTransferRugeStuben_T`. The splitting is by parallel modified independent sets (De
/// Sterck, Yang and Heys 2006), the interpolation is direct. Sorts the rows of A.
template <class T, class G, class L>
class MIVO_API ParLevelTransferRugeStuben_T : public SeqLevelTransferRugeStuben_T<T, G, L> {
 public:
  using Base = SeqLevelTransferRugeStuben_T<T, G, L>;
  using typename Base::Matrix;
  using typename Base::Ops;

  /// Marks 1 and -1.
  ParLevelTransferRugeStuben_T();
  ~ParLevelTransferRugeStuben_T() override;

  void transfer_operators(const Matrix& A, Matrix& P, Matrix& R) override;
};

MIVO_EXTERN_SCALARS(ParLevelTransferRugeStuben_T, long, int)

}  // namespace mivo
