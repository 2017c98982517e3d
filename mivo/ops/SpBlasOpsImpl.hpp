// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/SpBlasAlgebraImpl.hpp"
#include "mivo/ops/SpBlasProductsImpl.hpp"
#include "mivo/ops/SpBlasQueriesImpl.hpp"
#include "mivo/ops/SpBlasSelectionImpl.hpp"

namespace mivo {

/// Bodies of `SpBlasOps`, written once for all execution spaces, gathered from one class per theme:
/// the same members with a space in place of the device, and the passes that they are made of.
template <class T, class I, class Space>
class SpBlasOpsImpl : public SpBlasProductsImpl<T, I, Space>,
                      public SpBlasAlgebraImpl<T, I, Space>,
                      public SpBlasSelectionImpl<T, I, Space>,
                      public SpBlasQueriesImpl<T, I, Space> {};

}  // namespace mivo
