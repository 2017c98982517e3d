// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/SpBlasAlgebraImpl.hpp"
#include "mivo/ops/SpBlasProductsImpl.hpp"
#include "mivo/ops/SpBlasQueriesImpl.hpp"
#include "mivo/ops/SpBlasSelectionImpl.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// Bodies of `SpBlasOps`, written once for all execution spaces, gathered from one class per theme:
/// the same members with a space in place of the device, and the passes that they are made of.
template <class T, class I, class Space>
class SpBlasOpsImpl : public SpBlasProductsImpl<T, I, Space>,
                      public SpBlasAlgebraImpl<T, I, Space>,
                      public SpBlasSelectionImpl<T, I, Space>,
                      public SpBlasQueriesImpl<T, I, Space> {};

MIVO_CUDA_VALUES(SpBlasProductsImpl, int)
MIVO_CUDA_VALUES(SpBlasProductsImpl, long)
MIVO_CUDA_VALUES(SpBlasAlgebraImpl, int)
MIVO_CUDA_VALUES(SpBlasAlgebraImpl, long)
MIVO_CUDA_VALUES(SpBlasSelectionImpl, int)
MIVO_CUDA_VALUES(SpBlasSelectionImpl, long)
MIVO_CUDA_VALUES(SpBlasQueriesImpl, int)
MIVO_CUDA_VALUES(SpBlasQueriesImpl, long)

}  // namespace mivo
