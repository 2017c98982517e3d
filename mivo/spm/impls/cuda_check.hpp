// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cuda_runtime_api.h>

#include <cstdio>

namespace mivo::spm {

/// Prints a failed CUDA call and goes on; true for a call that succeeded. Texts and lines are
/// fixed, so that logs of all builds read alike.
inline bool cudaCheck(cudaError_t code, const char* call, int line) {
  if (code == cudaSuccess) return true;
  std::printf("CUDA CHECK FAIL %s, error %s file %s line %d\n", call, cudaGetErrorString(code),
              "/project/src/spm/impls/Cuda", line);
  return false;
}

}  // namespace mivo::spm
