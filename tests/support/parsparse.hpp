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
ParCSRMatrixT<T, G, int> parSparseOf(const Device& device, const HostCsr<T>& a,
                                     int comm = kCommWorld) {
  ParCSRMatrixT<T, G, int> out;
  out.createSeq(sparseOf(device, a), comm);
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

}  // namespace mivo::test
