// SPDX-License-Identifier: Apache-2.0
#define MIVO_CUDA_UNIT
#include "mivo/ops/MixedBlasOpsImpl.hpp"
