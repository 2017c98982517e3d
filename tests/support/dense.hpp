// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <random>
#include <vector>

#include "mivo/mat/Matrix.hpp"
#include "mivo/utils/Device.hpp"
#include "tests/support/values.hpp"

namespace mivo::test {

/// Row-major values as a matrix on a device.
template <class T, class I = int>
MatrixT<T, I> matrixOf(const Device& device, I rows, I cols, const std::vector<T>& values) {
  MatrixT<T, I> host;
  host.create(rows, cols, Device());
  for (std::size_t k = 0; k < values.size(); ++k) host.getData()[k] = values[k];
  return host.toDevice(device);
}

/// The elements, from whatever device.
template <class T, class I>
std::vector<T> valuesOf(const MatrixT<T, I>& m) {
  const MatrixT<T, I> host = m.toDevice(Device());
  return std::vector<T>(host.getData(), host.getData() + host.getSize());
}

template <class T>
std::vector<T> smallValues(std::size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::vector<T> out(n);
  for (T& v : out) v = smallValue<T>(gen);
  return out;
}

}  // namespace mivo::test
