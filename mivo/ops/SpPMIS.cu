// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/SpPMISImpl.hpp"

namespace mivo {

template class SpPMISImpl<int, spm::Cuda>;

}  // namespace mivo
