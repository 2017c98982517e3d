// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/communicator.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class R, class C>
class COOMatrixT;

/// The matrix itself where it is on the host, else a copy.
template <class T, class I>
CSRMatrixT<T, I> onHost(const CSRMatrixT<T, I>& m) {
  return m.getDevice().type == Device::kHost ? m : m.toDevice(Device());
}

template <class T, class G, class L>
struct ParCSRMatrixT<T, G, L>::ParCSRMatrixImpl {
  int comm = kCommWorld;
  G rows = 0;
  G cols = 0;
  Device device;
  Partitioner row_part;
  Partitioner col_part;
  std::shared_ptr<COOMatrixT<T, G, G>> assembly;  ///< between beginAssemble and endAssemble
  std::map<int, LocalBlock> local_blocks;         ///< by column block; those with entries
  bool prepared = false;                          ///< plan and block links are valid
  std::mutex product_lock;                        ///< serialises additions into the result
  Plan plan;

  int rank() const { return rankOf(comm); }
  int size() const { return sizeOf(comm); }
  /// A rank beyond the parts owns no rows.
  void ownRows(G* begin, G* end) const {
    const L part = static_cast<L>(rank());
    if (part < row_part.getNumParts()) {
      row_part.getOwnerShipRangeForPart(part, begin, end);
      return;
    }
    if (begin != nullptr) *begin = 0;
    if (end != nullptr) *end = 0;
  }
  L localRows() const {
    G begin = 0, end = 0;
    ownRows(&begin, &end);
    return static_cast<L>(end - begin);
  }

  /// Cuts the blocks from a plan that is about to go.
  void unlinkBlocks() {
    prepared = false;
    for (auto& entry : local_blocks) entry.second.plan_block = nullptr;
    plan.recvTraversal([](int, auto* block) { block->block = nullptr; });
  }
};

template <class T, class G, class L>
template <class Source>
void ParCSRMatrixT<T, G, L>::takeRows(Source& source) {
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3) << "begin coo to csr";
  std::vector<Local> blocks =
      buildColumnBlocks<T, G, L>(impl_->col_part, impl_->localRows(), source);
  if (impl_->device.type != Device::kHost) {
    for (Local& block : blocks) block = block.toDevice(impl_->device);
  }
  impl_->assembly.reset();
  replaceBlocks(blocks);
}

}  // namespace mivo
