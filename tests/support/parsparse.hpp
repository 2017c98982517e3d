// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <utility>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/dense.hpp"
#include "tests/support/sparse.hpp"

namespace mivo::test {

template <class T>
using ParSparse = ParCSRMatrixT<T, long, int>;

/// Entries by position, the plain form of an assembly.
template <class T>
using EntryMap = std::map<std::pair<long, long>, T>;

/// Distributed matrix of one rank with the entries of a plain one.
template <class T, class G = long>
ParCSRMatrixT<T, G, int> parSparseOf(const Device& device, const HostCsr<T>& a) {
  ParCSRMatrixT<T, G, int> out;
  out.createSeq(sparseOf(device, a), kCommWorld);
  return out;
}

/// Column in the given partition of a world of one rank.
template <class T, class G>
ParMatrixT<T, G, int> columnOf(const Device& device, const PartitionerT<G, int>& part,
                               const std::vector<T>& values) {
  ParMatrixT<T, G, int> out;
  out.create(part, device);
  out.setLocalMatrix({matrixOf<T>(device, static_cast<int>(values.size()), 1, values)});
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

template <class G>
PartitionerT<G, int> partsAt(const std::vector<G>& offsets) {
  PartitionerT<G, int> out;
  out.create(offsets.back(), offsets);
  return out;
}

}  // namespace mivo::test
