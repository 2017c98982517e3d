// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cuda_runtime_api.h>

#include "mivo/utils/export.hpp"

namespace mivo::spm {

/// Execution space of one CUDA GPU: one stream, on which all kernels of the device run in order.
///
/// Loops over it (`CudaParallel.hpp`) exist only in units that the CUDA compiler sees; other units
/// call instantiations of the kernel families.
struct MIVO_API Cuda {
  cudaStream_t stream;
  cudaDeviceProp prop;
  bool owns_stream;
  int deviceId;

  /// Takes over the stream of the calling thread's current device.
  explicit Cuda(cudaStream_t stream);
  ~Cuda();
  Cuda(const Cuda&) = delete;
  Cuda& operator=(const Cuda&) = delete;
};

}  // namespace mivo::spm
