// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>

#include "mivo/spm/RangePolicy.hpp"
#include "mivo/spm/impls/Cuda.hpp"
#include "mivo/spm/impls/cuda_check.hpp"

#ifdef MIVO_CUDA_EMULATE
#define MIVO_LAUNCH(kernel, grid, block, stream, ...) \
  ::mivo::cuda_emulation::launch(stream, grid, block, [&] { kernel(__VA_ARGS__); })
#else
/// One launch form for the CUDA compiler and for the emulated runtime.
#define MIVO_LAUNCH(kernel, grid, block, stream, ...) \
  kernel<<<grid, block, 0, stream>>>(__VA_ARGS__)
#endif

namespace mivo::spm {

template <class Body>
__global__ void spmKernelFor(std::int64_t nThreads, std::int64_t begin, std::int64_t end,
                             Body body) {
  const std::int64_t t = static_cast<std::int64_t>(blockIdx.x) * blockDim.x + threadIdx.x;
  if (t >= nThreads) return;
  for (std::int64_t i = begin + t; i < end; i += nThreads) body(i);
}

// Of a reducer, the place of the result is the host's: kernels use its identity and its step alone.
template <class Body, class Value, class Reducer>
__global__ void spmKernelReduce(Body body, int nPart, std::int64_t begin, std::int64_t end,
                                Value* partial, Reducer reducer) {
  const std::int64_t p = static_cast<std::int64_t>(blockIdx.x) * blockDim.x + threadIdx.x;
  if (p >= nPart) return;
  Value acc = reducer.identity;
  for (std::int64_t i = begin + p; i < end; i += nPart) body(i, acc);
  partial[p] = acc;
}

template <class Value, class Reducer>
__global__ void spmKernelReduceSmallArray(int nPart, Value* partial, Reducer /*reducer*/) {
  for (int p = 1; p < nPart; ++p) Reducer::join(partial[0], partial[p]);
}

template <class Space, class Body>
detail::IfSpace<Space, Cuda> parallel_for(const RangePolicy<Space>& policy, const Body& body) {
  const Cuda& space = policy.space;
  if (policy.end - policy.begin < 1) return;
  const std::int64_t nThreads = static_cast<std::int64_t>(space.prop.multiProcessorCount) *
                                space.prop.maxThreadsPerMultiProcessor;
  const int block = space.prop.maxThreadsPerBlock;
  // A device whose properties could not be read has blocks of no threads, which no launch accepts.
  if (block > 0) {
    const int grid = static_cast<int>((nThreads + block - 1) / block);
    MIVO_LAUNCH(spmKernelFor, grid, block, space.stream, nThreads, policy.begin, policy.end, body);
  }
  cudaCheck(cudaStreamSynchronize(space.stream), "cudaStreamSynchronize(stream)", 98);
}

template <class Space, class Body, class Reducer>
detail::IfSpace<Space, Cuda> parallel_reduce(const RangePolicy<Space>& policy, const Body& body,
                                             const Reducer& reducer) {
  using ValT = typename Reducer::value_type;
  const Cuda& space = policy.space;
  const std::int64_t n = policy.end - policy.begin;
  if (n < 1) {
    reducer.value = reducer.identity;
    return;
  }
  const int nPart = static_cast<int>(n < 256 ? n : 256);
  ValT* partial = nullptr;
  if (!cudaCheck(
          cudaMallocAsync(reinterpret_cast<void**>(&partial), sizeof(ValT) * nPart, space.stream),
          "cudaMallocAsync(&partial_reduce, sizeof(ValT)*nPart, stream)", 144)) {
    std::printf("cuda can not alloc memory for stream %p\n", static_cast<void*>(space.stream));
    return;
  }
  const int block = space.prop.maxThreadsPerBlock;
  if (block > 0) {
    const int grid = (nPart + block - 1) / block;
    MIVO_LAUNCH(spmKernelReduce, grid, block, space.stream, body, nPart, policy.begin, policy.end,
                partial, reducer);
  }
  MIVO_LAUNCH(spmKernelReduceSmallArray, 1, 1, space.stream, nPart, partial, reducer);
  cudaCheck(
      cudaMemcpyAsync(&reducer.value, partial, sizeof(ValT), cudaMemcpyDeviceToHost, space.stream),
      "cudaMemcpyAsync(&op.value, partial_reduce, sizeof(ValT), cudaMemcpyDeviceToHost, stream)",
      154);
  cudaCheck(cudaFreeAsync(partial, space.stream), "cudaFreeAsync(partial_reduce, stream)", 155);
  cudaCheck(cudaStreamSynchronize(space.stream), "cudaStreamSynchronize(stream)", 156);
}

}  // namespace mivo::spm
