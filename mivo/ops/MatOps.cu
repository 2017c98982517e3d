// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/MatOpsImpl.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

#define MIVO_INSTANCE(T)                                               \
  template class MatOpsImpl<T, int, MatrixLayoutRowMajor, spm::Cuda>;  \
  template class MatOpsImpl<T, int, MatrixLayoutColMajor, spm::Cuda>;  \
  template class MatOpsImpl<T, long, MatrixLayoutRowMajor, spm::Cuda>; \
  template class MatOpsImpl<T, long, MatrixLayoutColMajor, spm::Cuda>;
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
