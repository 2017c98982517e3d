// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/SpAggregationImpl.hpp"
#include "mivo/ops/SpExtendedInterpolationImpl.hpp"
#include "mivo/ops/SpPMISImpl.hpp"
#include "mivo/ops/SpRugeStubenImpl.hpp"
#include "mivo/ops/SpSmoothedAggregationImpl.hpp"
#include "mivo/ops/SpStrengthImpl.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// Bodies of `SpLevelTransferOps`, gathered from one class per theme: the same members with a space
/// in place of the device, and the passes that they are made of.
template <class T, class G, class L, class Space>
class SpLevelTransferOpsImpl : public SpSmoothedAggregationImpl<T, G, L, Space>,
                               public SpAggregationImpl<L, Space>,
                               public SpStrengthImpl<T, L, Space>,
                               public SpPMISImpl<L, Space>,
                               public SpExtendedInterpolationImpl<T, L, Space>,
                               public SpRugeStubenImpl<T, L, Space> {};

MIVO_CUDA_SCALARS(SpSmoothedAggregationImpl, long, int)
MIVO_CUDA_SCALARS(SpStrengthImpl, int)
MIVO_CUDA_SCALARS(SpExtendedInterpolationImpl, int)
MIVO_CUDA_SCALARS(SpRugeStubenImpl, int)

}  // namespace mivo
