// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/Partitioner.hpp"

#include <algorithm>
#include <cstddef>

#include "mivo/utils/logging.hpp"

namespace mivo {

template <class G, class L>
PartitionerT<G, L>::PartitionerT() {
  create(0, 0);
}

template <class G, class L>
void PartitionerT<G, L>::create(G globalSize, L numParts) {
  impl_ = std::make_shared<PartitionImpl>();
  impl_->num_parts = numParts;
  impl_->global_size = globalSize;
  if (globalSize == 0 || numParts < 1) return;

  const G q = globalSize / numParts;
  const G r = globalSize % numParts;
  impl_->offsets.resize(static_cast<std::size_t>(numParts) + 1);
  for (L k = 0; k <= numParts; ++k) {
    impl_->offsets[static_cast<std::size_t>(k)] = k <= r ? k * (q + 1) : r + k * q;
  }
}

template <class G, class L>
void PartitionerT<G, L>::create(G globalSize, const std::vector<G>& offsets) {
  // The offsets may be those of the present description, which goes with its last handle.
  auto fresh = std::make_shared<PartitionImpl>();
  fresh->num_parts = offsets.empty() ? 0 : static_cast<L>(offsets.size() - 1);
  fresh->global_size = globalSize;
  fresh->offsets = offsets;
  impl_ = fresh;
}

template <class G, class L>
void PartitionerT<G, L>::getOwnerShipRangeForPart(L part, G* begin, G* end) const {
  const std::vector<G>& offsets = impl_->offsets;
  const std::size_t p = static_cast<std::size_t>(part);
  if (begin != nullptr) *begin = offsets.empty() ? 0 : offsets[p];
  if (end != nullptr) *end = offsets.empty() ? 0 : offsets[p + 1];
}

template <class G, class L>
L PartitionerT<G, L>::getLocalSizeForPart(L part) const {
  G begin = 0;
  G end = 0;
  getOwnerShipRangeForPart(part, &begin, &end);
  return static_cast<L>(end - begin);
}

template <class G, class L>
bool PartitionerT<G, L>::operator==(const PartitionerT& other) const {
  return impl_ == other.impl_ ||
         (getGlobalSize() == other.getGlobalSize() && getNumParts() == other.getNumParts() &&
          getOffsets() == other.getOffsets());
}

template <class G, class L>
L PartitionerT<G, L>::firstGreaterOrEqual(const std::vector<G>& offsets, G value) {
  MIVO_CHECK(!offsets.empty() && offsets.front() <= value && offsets.back() >= value);
  // Behind equal offsets, so that empty parts are passed over.
  const auto above = std::upper_bound(offsets.begin(), offsets.end(), value);
  return above == offsets.end() ? -1 : static_cast<L>(above - offsets.begin()) - 1;
}

template <class G, class L>
void PartitionerT<G, L>::global2Local(G global, L& part, L& local) const {
  part = firstGreaterOrEqual(impl_->offsets, global);
  // An index that no part owns (the last offset itself) has no local index.
  local = part < 0 ? -1 : static_cast<L>(global - impl_->offsets[static_cast<std::size_t>(part)]);
}

template <class G, class L>
MatrixT<L, L, MatrixLayoutRowMajor> PartitionerT<G, L>::getPartition() const {
  MatrixT<L, L, MatrixLayoutRowMajor> partition;
  partition.create(static_cast<L>(impl_->offsets.size()), 1, Device());
  for (std::size_t i = 0; i < impl_->offsets.size(); ++i) {
    partition.getData()[i] = static_cast<L>(impl_->offsets[i]);
  }
  return partition;
}

template class PartitionerT<int, int>;
template class PartitionerT<long, int>;
template class PartitionerT<long, long>;

}  // namespace mivo
