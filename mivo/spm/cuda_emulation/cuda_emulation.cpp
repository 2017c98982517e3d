// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <numeric>

#include "mivo/spm/cuda_emulation/cuda_runtime_api.h"

struct CUstream_st {
  int device;
};

thread_local mivo::cuda_emulation::Index3 blockIdx;
thread_local mivo::cuda_emulation::Index3 threadIdx;
thread_local mivo::cuda_emulation::Index3 blockDim;

namespace mivo::cuda_emulation {
namespace {

constexpr int kMaxDevices = 4;
constexpr std::size_t kArenaBytes = std::size_t(16) << 30;
constexpr std::size_t kAlignment = 256;
constexpr std::size_t kFillLimit = std::size_t(1) << 20;

/// Memory of one device: a reserved address range that the host can touch only while it is open,
/// with first-fit allocation inside.
class Arena {
 public:
  Arena() {
    void* p =
        mmap(nullptr, kArenaBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) {
      std::perror("cuda emulation: can not reserve device memory");
      std::abort();
    }
    base_ = static_cast<unsigned char*>(p);
    free_[0] = kArenaBytes;
  }

  bool holds(const void* p) const {
    const auto* q = static_cast<const unsigned char*>(p);
    return q >= base_ && q < base_ + kArenaBytes;
  }

  void* allocate(std::size_t bytes) {
    if (bytes > kArenaBytes) return nullptr;
    const std::lock_guard<std::mutex> guard(lock_);
    const std::size_t size = (bytes + kAlignment) / kAlignment * kAlignment;
    for (auto block = free_.begin(); block != free_.end(); ++block) {
      if (block->second < size) continue;
      const std::size_t at = block->first;
      const std::size_t rest = block->second - size;
      free_.erase(block);
      if (rest > 0) free_[at + size] = rest;
      used_[at] = size;
      return base_ + at;
    }
    return nullptr;
  }

  bool release(void* p) {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto block = used_.find(static_cast<std::size_t>(static_cast<unsigned char*>(p) - base_));
    if (block == used_.end()) return false;
    auto entry = free_.emplace(block->first, block->second).first;
    used_.erase(block);
    const auto after = std::next(entry);
    if (after != free_.end() && entry->first + entry->second == after->first) {
      entry->second += after->second;
      free_.erase(after);
    }
    if (entry != free_.begin()) {
      const auto before = std::prev(entry);
      if (before->first + before->second == entry->first) {
        before->second += entry->second;
        free_.erase(entry);
      }
    }
    return true;
  }

  void open() {
    const std::lock_guard<std::mutex> guard(lock_);
    if (opened_++ == 0) mprotect(base_, kArenaBytes, PROT_READ | PROT_WRITE);
  }

  void close() {
    const std::lock_guard<std::mutex> guard(lock_);
    if (--opened_ == 0) mprotect(base_, kArenaBytes, PROT_NONE);
  }

 private:
  std::mutex lock_;
  int opened_ = 0;
  unsigned char* base_ = nullptr;
  std::map<std::size_t, std::size_t> free_;
  std::map<std::size_t, std::size_t> used_;
};

/// Never destroyed: matrices in static storage give memory back after the end of main.
struct Machine {
  std::mutex lock;
  int devices = 2;
  std::array<std::unique_ptr<Arena>, kMaxDevices> arenas;
  std::map<Call, int> faults;
  long threads = 0;
  unsigned long launches = 0;
};

Machine& machine() {
  static Machine* instance = [] {
    auto* made = new Machine;
    for (auto& arena : made->arenas) arena = std::make_unique<Arena>();
    return made;
  }();
  return *instance;
}

Arena& arena(int device) { return *machine().arenas[static_cast<std::size_t>(device)]; }

thread_local int current_device = 0;

bool fails(Call call) {
  Machine& m = machine();
  const std::lock_guard<std::mutex> guard(m.lock);
  const auto fault = m.faults.find(call);
  if (fault == m.faults.end() || fault->second < 1) return false;
  --fault->second;
  return true;
}

cudaError_t allocate(void** p, std::size_t bytes, int device) {
  void* got = arena(device).allocate(bytes);
  if (got == nullptr) return cudaErrorMemoryAllocation;
  // Fresh memory is no zero on a device either.
  const OpenMemory open(device);
  std::memset(got, 0xA5, bytes < kFillLimit ? bytes : kFillLimit);
  *p = got;
  return cudaSuccess;
}

cudaError_t release(void* p) {
  if (p == nullptr) return cudaSuccess;
  const int device = ownerOf(p);
  return device >= 0 && arena(device).release(p) ? cudaSuccess : cudaErrorInvalidValue;
}

cudaError_t copy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind) {
  if (bytes == 0) return cudaSuccess;
  const int to = ownerOf(dst);
  const int from = ownerOf(src);
  const bool toDevice = kind == cudaMemcpyHostToDevice || kind == cudaMemcpyDeviceToDevice;
  const bool fromDevice = kind == cudaMemcpyDeviceToHost || kind == cudaMemcpyDeviceToDevice;
  if (toDevice != (to >= 0) || fromDevice != (from >= 0)) return cudaErrorInvalidValue;
  std::unique_ptr<OpenMemory> openTo, openFrom;
  if (to >= 0) openTo = std::make_unique<OpenMemory>(to);
  if (from >= 0) openFrom = std::make_unique<OpenMemory>(from);
  std::memmove(dst, src, bytes);
  return cudaSuccess;
}

}  // namespace

void failNext(Call call, int times) {
  Machine& m = machine();
  const std::lock_guard<std::mutex> guard(m.lock);
  m.faults[call] = times;
}

void setDeviceCount(int count) { machine().devices = count < kMaxDevices ? count : kMaxDevices; }

int ownerOf(const void* p) {
  for (int d = 0; d < kMaxDevices; ++d) {
    if (arena(d).holds(p)) return d;
  }
  return -1;
}

long threadsOfLastLaunch() { return machine().threads; }

OpenMemory::OpenMemory(int device) : device_(device) { arena(device_).open(); }
OpenMemory::~OpenMemory() { arena(device_).close(); }

int beginLaunch(cudaStream_t stream, long grid, long block, ThreadOrder& order) {
  if (stream == nullptr || fails(Call::Launch)) return -1;
  const long threads = grid * block;
  machine().threads = threads;
  if (threads > 1) {
    // The same from run to run: the number of the launch decides. A stride without a common factor
    // reaches every thread.
    const unsigned long mixed = ++machine().launches * 0x9e3779b97f4a7c15ul;
    order.first = static_cast<long>((mixed >> 33) % static_cast<unsigned long>(threads));
    order.stride = 1 + static_cast<long>((mixed >> 17) % static_cast<unsigned long>(threads - 1));
    while (std::gcd(order.stride, threads) > 1) --order.stride;
  }
  return stream->device;
}

}  // namespace mivo::cuda_emulation

using mivo::cuda_emulation::Call;
using mivo::cuda_emulation::current_device;
using mivo::cuda_emulation::fails;
using mivo::cuda_emulation::machine;

const char* cudaGetErrorString(cudaError_t code) {
  switch (code) {
    case cudaSuccess:
      return "no error";
    case cudaErrorInvalidValue:
      return "invalid argument";
    case cudaErrorMemoryAllocation:
      return "out of memory";
    case cudaErrorInvalidConfiguration:
      return "invalid configuration argument";
    case cudaErrorNoDevice:
      return "no CUDA-capable device is detected";
    case cudaErrorInvalidDevice:
      return "invalid device ordinal";
  }
  return "unrecognized error code";
}

cudaError_t cudaGetDeviceCount(int* count) {
  if (fails(Call::GetDeviceCount)) return cudaErrorNoDevice;
  *count = machine().devices;
  return cudaSuccess;
}

cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device) {
  if (fails(Call::GetDeviceProperties)) return cudaErrorInvalidDevice;
  if (device < 0 || device >= machine().devices) return cudaErrorInvalidDevice;
  std::snprintf(prop->name, sizeof(prop->name), "emulated device %d", device);
  prop->multiProcessorCount = 3;
  prop->maxThreadsPerMultiProcessor = 5;
  prop->maxThreadsPerBlock = 4;
  return cudaSuccess;
}

cudaError_t cudaSetDevice(int device) {
  if (device < 0 || device >= machine().devices) return cudaErrorInvalidDevice;
  current_device = device;
  return cudaSuccess;
}

cudaError_t cudaGetDevice(int* device) {
  if (fails(Call::GetDevice)) return cudaErrorNoDevice;
  *device = current_device;
  return cudaSuccess;
}

cudaError_t cudaStreamCreate(cudaStream_t* stream) {
  *stream = new CUstream_st{current_device};
  return cudaSuccess;
}

cudaError_t cudaStreamDestroy(cudaStream_t stream) {
  if (fails(Call::StreamDestroy)) return cudaErrorInvalidValue;
  delete stream;
  return cudaSuccess;
}

cudaError_t cudaStreamSynchronize(cudaStream_t) {
  return fails(Call::StreamSynchronize) ? cudaErrorInvalidValue : cudaSuccess;
}

cudaError_t cudaMalloc(void** p, std::size_t bytes) {
  if (fails(Call::Malloc)) return cudaErrorMemoryAllocation;
  return mivo::cuda_emulation::allocate(p, bytes, current_device);
}

cudaError_t cudaFree(void* p) { return mivo::cuda_emulation::release(p); }

cudaError_t cudaMallocAsync(void** p, std::size_t bytes, cudaStream_t stream) {
  if (fails(Call::MallocAsync)) return cudaErrorMemoryAllocation;
  return mivo::cuda_emulation::allocate(p, bytes, stream->device);
}

cudaError_t cudaFreeAsync(void* p, cudaStream_t) {
  if (fails(Call::FreeAsync)) return cudaErrorInvalidValue;
  return mivo::cuda_emulation::release(p);
}

cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind) {
  return mivo::cuda_emulation::copy(dst, src, bytes, kind);
}

cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind,
                            cudaStream_t) {
  if (fails(Call::MemcpyAsync)) return cudaErrorInvalidValue;
  return mivo::cuda_emulation::copy(dst, src, bytes, kind);
}
