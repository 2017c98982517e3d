// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>

#include "mivo/utils/export.hpp"

/// Stand-in for the part of the CUDA runtime that the library uses, on the CPU: builds with
/// MIVO_CUDA=EMULATE find this header in place of the toolkit's. Its devices are small, their
/// memory is unreadable to the host except inside a launch or a copy, and the threads of a kernel
/// run one after the other, in an order that changes from launch to launch: what depends on it, as
/// it must not, shows. One launch at a time.

#define __global__
#define __host__
#define __device__

enum cudaError_t {
  cudaSuccess = 0,
  cudaErrorInvalidValue = 1,
  cudaErrorMemoryAllocation = 2,
  cudaErrorInvalidConfiguration = 9,
  cudaErrorNoDevice = 100,
  cudaErrorInvalidDevice = 101
};

enum cudaMemcpyKind {
  cudaMemcpyHostToHost = 0,
  cudaMemcpyHostToDevice = 1,
  cudaMemcpyDeviceToHost = 2,
  cudaMemcpyDeviceToDevice = 3
};

struct MIVO_API cudaDeviceProp {
  char name[64];
  int multiProcessorCount;
  int maxThreadsPerMultiProcessor;
  int maxThreadsPerBlock;
};

struct CUstream_st;
using cudaStream_t = CUstream_st*;

MIVO_API const char* cudaGetErrorString(cudaError_t code);
MIVO_API cudaError_t cudaGetDeviceCount(int* count);
MIVO_API cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device);
MIVO_API cudaError_t cudaSetDevice(int device);
MIVO_API cudaError_t cudaGetDevice(int* device);
MIVO_API cudaError_t cudaStreamCreate(cudaStream_t* stream);
MIVO_API cudaError_t cudaStreamDestroy(cudaStream_t stream);
MIVO_API cudaError_t cudaStreamSynchronize(cudaStream_t stream);
MIVO_API cudaError_t cudaMalloc(void** p, std::size_t bytes);
MIVO_API cudaError_t cudaFree(void* p);
MIVO_API cudaError_t cudaMallocAsync(void** p, std::size_t bytes, cudaStream_t stream);
MIVO_API cudaError_t cudaFreeAsync(void* p, cudaStream_t stream);
MIVO_API cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind);
MIVO_API cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t bytes,
                                     cudaMemcpyKind kind, cudaStream_t stream);

namespace mivo::cuda_emulation {

/// Calls that can be made to fail.
enum class Call {
  GetDeviceCount,
  GetDevice,
  GetDeviceProperties,
  StreamDestroy,
  StreamSynchronize,
  Malloc,
  MallocAsync,
  MemcpyAsync,
  FreeAsync,
  Launch
};

/// The next `times` calls of that kind fail, without effect.
MIVO_API void failNext(Call call, int times);
/// Number of devices from here on, 2 at the start.
MIVO_API void setDeviceCount(int count);
/// Device whose memory holds the address, -1 for host memory.
MIVO_API int ownerOf(const void* p);
/// Threads of the last launch: blocks times threads a block.
MIVO_API long threadsOfLastLaunch();

struct Index3 {
  unsigned x = 0;
};

/// Opens a device's memory to the process for the scope of a launch or copy. Scopes nest, also over
/// threads.
class MIVO_API OpenMemory {
 public:
  explicit OpenMemory(int device);
  ~OpenMemory();
  OpenMemory(const OpenMemory&) = delete;
  OpenMemory& operator=(const OpenMemory&) = delete;

 private:
  int device_;
};

/// Order of the threads of a launch: from `first` on in steps of `stride`, modulo their number.
struct MIVO_API ThreadOrder {
  long first = 0;
  long stride = 1;
};

/// Device of a stream, and the order of the threads; -1 when the launch is to be skipped because it
/// fails.
MIVO_API int beginLaunch(cudaStream_t stream, long grid, long block, ThreadOrder& order);

}  // namespace mivo::cuda_emulation

extern MIVO_API thread_local mivo::cuda_emulation::Index3 blockIdx;
extern MIVO_API thread_local mivo::cuda_emulation::Index3 threadIdx;
extern MIVO_API thread_local mivo::cuda_emulation::Index3 blockDim;

namespace mivo::cuda_emulation {

/// Runs `kernel` once for each thread of each block.
template <class Kernel>
void launch(cudaStream_t stream, long grid, long block, const Kernel& kernel) {
  ThreadOrder order;
  const int device = beginLaunch(stream, grid, block, order);
  if (device < 0) return;
  const OpenMemory open(device);
  blockDim.x = static_cast<unsigned>(block);
  const long threads = grid * block;
  long id = order.first;
  for (long k = 0; k < threads; ++k) {
    blockIdx.x = static_cast<unsigned>(id / block);
    threadIdx.x = static_cast<unsigned>(id % block);
    kernel();
    id = (id + order.stride) % threads;
  }
}

}  // namespace mivo::cuda_emulation
