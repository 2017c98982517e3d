// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/SpBlasOpsImpl.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

#define MIVO_INSTANCE(T)                                  \
  template class SpBlasProductsImpl<T, int, spm::Cuda>;   \
  template class SpBlasProductsImpl<T, long, spm::Cuda>;  \
  template class SpBlasAlgebraImpl<T, int, spm::Cuda>;    \
  template class SpBlasAlgebraImpl<T, long, spm::Cuda>;   \
  template class SpBlasSelectionImpl<T, int, spm::Cuda>;  \
  template class SpBlasSelectionImpl<T, long, spm::Cuda>; \
  template class SpBlasQueriesImpl<T, int, spm::Cuda>;    \
  template class SpBlasQueriesImpl<T, long, spm::Cuda>;
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
