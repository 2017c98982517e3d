// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/RowListOpsImpl.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

#define MIVO_INSTANCE(T) template class RowListOpsImpl<T, int, spm::Cuda>;
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
