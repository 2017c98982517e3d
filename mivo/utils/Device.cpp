// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/Device.hpp"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/spm/impls/OpenMP.hpp"
#include "mivo/utils/launcher.hpp"
#include "mivo/utils/logging.hpp"
#ifdef MIVO_WITH_CUDA
#include "mivo/spm/impls/Cuda.hpp"
#endif

namespace mivo {

const Device::KindMap Device::type_map = {
    {"cpu", Device::kHost}, {"cuda", Device::kCuda}, {"hip", Device::kHip}};

namespace {

constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kHugePage = std::size_t(2) << 20;

/// A first touch of fresh memory costs more than most work on it, so large blocks ask for huge
/// pages. Those that the C library maps on their own do not begin with one, since its header in
/// front of them would take another.
void* hostMalloc(std::size_t bytes) {
  if (bytes < kHugePage) return std::malloc(bytes);
  const std::size_t rounded = (bytes + kPage - 1) / kPage * kPage;
  if (rounded < bytes) return nullptr;
  const bool mappedAlone = bytes >= 16 * kHugePage;
  void* p = nullptr;
  if (posix_memalign(&p, mappedAlone ? kCacheLine : kHugePage, rounded) != 0) return nullptr;
  const std::size_t inPage = reinterpret_cast<std::uintptr_t>(p) % kPage;
  madvise(static_cast<char*>(p) - inPage, rounded, MADV_HUGEPAGE);
  return p;
}

}  // namespace

Device::Device(int kind, int ordinal) : type(kind), id(ordinal) {
  for (const auto& entry : type_map) {
    if (entry.second == type) name = entry.first;
  }
}

Device::Device(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string kind = text.substr(0, colon);
  const int ordinal = colon == std::string::npos ? 0 : std::stoi(text.substr(colon + 1));
  const auto entry = type_map.find(kind);
  if (entry == type_map.end()) {
    std::cout << "unrecognized device type: " << name << std::endl;
    return;
  }
  type = entry->second;
  name = kind;
  id = ordinal;
}

std::string Device::getString() const { return name + ":" + std::to_string(id); }

Device::DeviceInfo Device::getDeviceInfo() const {
  const auto& registry = getDeviceInfoMap();
  const auto entry = registry.find(*this);
  if (entry == registry.end()) {
    std::cout << "can not get dev info for: " << name << std::endl;
    return {};
  }
  return entry->second;
}

void Device::setDeviceContext() const {
#ifdef MIVO_WITH_CUDA
  if (type == kCuda) cudaSetDevice(id);
#endif
}

int Device::getDeviceContext() const {
#ifdef MIVO_WITH_CUDA
  if (type == kCuda) {
    int current = -1;
    cudaGetDevice(&current);
    return current;
  }
#endif
  return -1;
}

void* Device::rawMalloc(std::size_t bytes) const {
  switch (type) {
    case kHost:
      return hostMalloc(bytes);
    case kCuda: {
#ifdef MIVO_WITH_CUDA
      cudaDeviceProp properties;
      cudaGetDeviceProperties(&properties, id);
      cudaSetDevice(id);
      void* p = nullptr;
      cudaMalloc(&p, bytes);
      return p;
#else
      MIVO_LOG_AT(0, true, "/project/src/utils/Device", 110)
          << "device is " << getString() << " but CUDA is not enabled";
      return nullptr;
#endif
    }
    case kHip:
      MIVO_LOG_AT(0, true, "/project/src/utils/Device", 110)
          << "device is " << getString() << " but HIP is not enabled";
      return nullptr;
    default:
      MIVO_LOG_AT(0, true, "/project/src/utils/Device", 114)
          << "unknown device type " << getString();
      return nullptr;
  }
}

void* Device::rawRealloc(void*, std::size_t bytes) const { return rawMalloc(bytes); }

void Device::rawFree(void* p) const {
  if (type == kHost) {
    std::free(p);
    return;
  }
#ifdef MIVO_WITH_CUDA
  if (type == kCuda) {
    cudaSetDevice(id);
    cudaFree(p);
  }
#endif
}

void Device::rawCopyTo(std::size_t bytes, const void* src, const Device& dstDevice,
                       void* dst) const {
  if (type == kHost && dstDevice.type == kHost) {
    if (bytes > 0) std::memcpy(dst, src, bytes);  // memcpy forbids the null of an empty array
    return;
  }
#ifdef MIVO_WITH_CUDA
  if (type == kCuda && dstDevice.type == kCuda) {
    cudaMemcpy(dst, src, bytes, cudaMemcpyDeviceToDevice);
  } else if (type == kCuda && dstDevice.type == kHost) {
    cudaMemcpy(dst, src, bytes, cudaMemcpyDeviceToHost);
  } else if (type == kHost && dstDevice.type == kCuda) {
    cudaMemcpy(dst, src, bytes, cudaMemcpyHostToDevice);
  }
#endif
}

std::map<Device, Device::DeviceInfo>& Device::getDeviceInfoMap() {
  static std::map<Device, DeviceInfo> dev_info_map;
  return dev_info_map;
}

void buildInfoMap() {
  auto& registry = Device::getDeviceInfoMap();
  registry[Device(Device::kHost, 0)] = {std::make_shared<spm::OpenMP>(), nullptr};
#ifdef MIVO_WITH_CUDA
  int count = 0;
  cudaGetDeviceCount(&count);
  for (int i = 0; i < count; ++i) {
    cudaDeviceProp properties;
    cudaGetDeviceProperties(&properties, i);
    cudaSetDevice(i);
    cudaStream_t stream = nullptr;
    cudaStreamCreate(&stream);
    registry[Device(Device::kCuda, i)] = {std::make_shared<spm::Cuda>(stream), stream};
  }
#endif
}

std::vector<Device> Device::getAllDevices() {
  std::vector<Device> devices{Device(kHost, 0)};
#ifdef MIVO_WITH_CUDA
  int count = 0;
  cudaGetDeviceCount(&count);
  for (int i = 0; i < count; ++i) {
    cudaDeviceProp properties;
    cudaGetDeviceProperties(&properties, i);
    devices.emplace_back(kCuda, i);
  }
#endif
  return devices;
}

namespace {

/// Ends the program under a message-passing library of another family. Handles are addresses there,
/// or other numbers, so that the first call which takes one would crash; a log line makes such
/// calls for its rank, so the text goes out without one.
void refuseOtherMessageLayer() {
  char text[8192] = "";  // MPI_MAX_LIBRARY_VERSION_STRING of MPICH, the longest
  int length = 0;
  MPI_Get_library_version(text, &length);  // the form for one process writes nothing
  const std::string version(text);
  if (version.empty()) return;
  for (const char* family : {"MPICH", "MVAPICH", "Intel(R) MPI Library"}) {
    if (version.find(family) != std::string::npos) return;
  }
  std::cout << "Device::initialize: the message-passing library of this run is \""
            << version.substr(0, version.find_first_of(",\n"))
            << "\"; libmivo needs MPICH or a library with its binary interface" << std::endl;
  std::exit(1);
}

/// Says, once in a run, what would otherwise show only as answers that come several times or as an
/// error of the message-passing library's own.
void reportMessageLayer() {
  static bool reported = false;
  if (reported || !launchedWorld().speaks) return;
  int ended = 0;
  MPI_Finalized(&ended);
  const std::string text =
      ended ? "the message layer has ended and cannot be started twice in one process; call "
              "Device::finalize once, at the end"
            : describeLoneWorld();
  if (text.empty()) return;
  reported = true;
  std::cerr << "Device::initialize: " << text << std::endl;
}

}  // namespace

void Device::initialize() {
  refuseOtherMessageLayer();
  int started = 0;
  MPI_Initialized(&started);
  if (!started) MPI_Init(nullptr, nullptr);
  reportMessageLayer();
  if (!spm::is_initialized()) {
    static char program[] = "mivo";
    static char* argv[] = {program, nullptr};
    spm::initialize(1, argv);
    buildInfoMap();
  }
}

void Device::finalize() {
  getDeviceInfoMap().clear();
  if (spm::is_initialized()) spm::finalize();
  int started = 0;
  int ended = 0;
  MPI_Initialized(&started);
  MPI_Finalized(&ended);
  if (started && !ended) MPI_Finalize();
}

namespace spm {

bool gs_spm_init = false;

void initialize(int, char**) { gs_spm_init = true; }
void finalize() { gs_spm_init = false; }
bool is_initialized() { return gs_spm_init; }

}  // namespace spm
}  // namespace mivo
