// SPDX-License-Identifier: Apache-2.0
#include "mivo/spm/impls/Cuda.hpp"

#include "mivo/spm/impls/cuda_check.hpp"

namespace mivo::spm {

Cuda::Cuda(cudaStream_t made) : stream(made), prop{}, owns_stream(true), deviceId(0) {
  cudaCheck(cudaGetDevice(&deviceId), "cudaGetDevice(&this->deviceId)", 23);
  cudaCheck(cudaGetDeviceProperties(&prop, deviceId),
            "cudaGetDeviceProperties(&prop, this->deviceId)", 24);
}

Cuda::~Cuda() {
  if (owns_stream && stream != nullptr) {
    cudaCheck(cudaStreamDestroy(stream), "cudaStreamDestroy(stream)", 28);
  }
}

}  // namespace mivo::spm
