// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "mivo/mat/Matrix.hpp"
#include "mivo/utils/export.hpp"

namespace mivo {

/// How the index range [0, globalSize) is cut into consecutive parts, one per rank or column block.
///
/// A handle on a description that never changes in place: copies share it, `create` moves this
/// handle to a fresh one. No communication: all ranks build the same partitioner from the same
/// arguments. G is the type of global indices, L that of part numbers and of indices within a part.
/// Part numbers are not checked.
template <class G, class L>
class MIVO_API PartitionerT {
 public:
  /// No parts, global size 0.
  PartitionerT();
  // A move copies the handle, so that none is ever without a description.
  PartitionerT(const PartitionerT&) = default;
  PartitionerT& operator=(const PartitionerT&) = default;

  /// Even split: the first globalSize % numParts parts get one index more than the others. With a
  /// zero argument there are no offsets, and every part asked for has the range [0, 0).
  void create(G globalSize, L numParts);
  /// Explicit split by offsets (number of parts + 1 values), taken as they stand.
  void create(G globalSize, const std::vector<G>& offsets);

  /// Range [begin, end) of a part; a null pointer is skipped.
  void getOwnerShipRangeForPart(L part, G* begin, G* end) const;
  L getLocalSizeForPart(L part) const;
  L getNumParts() const { return impl_->num_parts; }
  G getGlobalSize() const { return impl_->global_size; }
  const std::vector<G>& getOffsets() const { return impl_->offsets; }

  /// Equal global size, part count and offsets.
  bool operator==(const PartitionerT& other) const;
  bool operator!=(const PartitionerT& other) const { return !(*this == other); }

  /// Number of the part whose interval holds `value`, by bisection; empty parts never match.
  /// Ends the process for a value outside the offsets; the last offset itself gives -1.
  static L firstGreaterOrEqual(const std::vector<G>& offsets, G value);
  /// Part and local index of a global index below the global size.
  void global2Local(G global, L& part, L& local) const;

  /// The offsets as a host column, narrowed to L.
  MatrixT<L, L, MatrixLayoutRowMajor> getPartition() const;

 private:
  struct PartitionImpl {
    L num_parts = 0;
    G global_size = 0;
    std::vector<G> offsets;
  };
  std::shared_ptr<PartitionImpl> impl_;
};

extern template class PartitionerT<int, int>;
extern template class PartitionerT<long, int>;
extern template class PartitionerT<long, long>;

}  // namespace mivo
