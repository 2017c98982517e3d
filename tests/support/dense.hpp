// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "mivo/mat/ParMatrix.hpp"
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

/// The elements of this rank.
template <class T, class G>
std::vector<T> valuesOf(const ParMatrixT<T, G, int>& m) {
  return valuesOf(m.getLocalMatrix());
}

/// Partition with a part between each two offsets.
template <class G>
PartitionerT<G, int> partsAt(const std::vector<G>& offsets) {
  PartitionerT<G, int> out;
  out.create(offsets.back(), offsets);
  return out;
}

/// alpha A x + beta y for a row-major A, each row summed in order from 0; beta 0 does not read y.
template <class T>
std::vector<T> denseAxpby(const std::vector<T>& A, T alpha, const std::vector<T>& x, T beta,
                          const std::vector<T>& y) {
  std::vector<T> out(y.size());
  for (std::size_t i = 0; i < y.size(); ++i) {
    T sum(0);
    for (std::size_t j = 0; j < x.size(); ++j) sum += A[i * x.size() + j] * x[j];
    out[i] = isZero(beta) ? alpha * sum : alpha * sum + beta * y[i];
  }
  return out;
}

}  // namespace mivo::test
