// SPDX-License-Identifier: Apache-2.0
#include "mivo/comu/communication_tools_impl.hpp"
#include "mivo/mat/Matrix.hpp"

namespace mivo {

#define MIVO_INSTANCE(T) \
  MIVO_INSTANTIATE_SCATTER_GATHER_STREAM(MatrixT<T, int, MatrixLayoutRowMajor>)
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE
MIVO_INSTANTIATE_SPARSE_SEND_RECV_STREAM(MatrixT<int, int, MatrixLayoutRowMajor>)

}  // namespace mivo
