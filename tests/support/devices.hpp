// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "mivo/utils/Device.hpp"
#include "mivo/utils/memory.hpp"

namespace mivo::test {

/// The host, and the first CUDA device where the build and the machine have one. Suites of kernels
/// and containers loop over them, so that they are written once.
inline std::vector<Device> testDevices() {
  Device::initialize();
  std::vector<Device> devices = Device::getAllDevices();
  if (devices.size() > 2) devices.resize(2);
  return devices;
}

/// Memory on a device with a copy of host values, freed at the end of the scope.
template <class T>
class DeviceArray {
 public:
  DeviceArray(const Device& device, const std::vector<T>& values)
      : device_(device), size_(values.size()) {
    data_ = mivo::detail::allocate<T>(device_, size_ > 0 ? size_ : 1, "an array");
    if (size_ > 0) Device().rawCopyTo(size_ * sizeof(T), values.data(), device_, data_);
  }
  DeviceArray(const Device& device, std::size_t size) : DeviceArray(device, std::vector<T>(size)) {}
  ~DeviceArray() { device_.rawFree(data_); }
  DeviceArray(DeviceArray&& other) noexcept
      : device_(other.device_), size_(other.size_), data_(std::exchange(other.data_, nullptr)) {}

  T* data() const { return data_; }
  operator T*() const { return data_; }
  std::vector<T> values() const {
    std::vector<T> out(size_);
    if (size_ > 0) device_.rawCopyTo(size_ * sizeof(T), data_, Device(), out.data());
    return out;
  }

 private:
  Device device_;
  std::size_t size_;
  T* data_;
};

}  // namespace mivo::test
