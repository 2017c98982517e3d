// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/SpAggregationImpl.hpp"

namespace mivo {

template class SpAggregationImpl<int, spm::OpenMP>;

}  // namespace mivo
