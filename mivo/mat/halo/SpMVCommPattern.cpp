// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/SpMVCommPattern.hpp"

#include <cstddef>
#include <limits>
#include <ostream>
#include <type_traits>
#include <utility>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/halo/SpMVCommPatternImpl.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
SpMVCommPatternT<T, G, L>::SpMVCommPatternT() : impl_(std::make_shared<SpMVCommPatternImpl>()) {}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::setPlace(int comm, const Device& device) {
  impl_ = std::make_shared<SpMVCommPatternImpl>();
  impl_->comm = comm;
  impl_->device = device;
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::create(int comm, const Device& device,
                                       const PartitionerT<G, L>& colPartitioner,
                                       const std::vector<IndexVector>& colCounts) {
  setPlace(comm, device);
  SpMVCommPatternImpl& plan = *impl_;
  plan.wait_some = Utils::isWaitSome();
  MIVO_CHECK(colCounts.size() == static_cast<std::size_t>(colPartitioner.getNumParts()));

  const int rank = rankOf(comm), nprocs = sizeOf(comm);
  std::vector<IndexVector> need(static_cast<std::size_t>(nprocs));
  std::vector<IndexVector> asked(static_cast<std::size_t>(nprocs));
  for (std::size_t part = 0; part < colCounts.size(); ++part) {
    const IndexVector& counts = colCounts[part];
    if (counts.getSize() == 0) continue;
    const int p = static_cast<int>(part);
    const bool own = p == rank;
    IndexVector nz;
    if (!own) {
      nz = counts.getNonZeroIndices();
      if (nz.getSize() == 0) continue;
    }
    SpmvColBlock& block = plan.recv_blocks[p];
    colPartitioner.getOwnerShipRangeForPart(static_cast<L>(p), &block.col_start, &block.col_end);
    if (own) continue;
    MIVO_CHECK(p < nprocs) << "column block " << p << " has entries, but there are " << nprocs
                           << " ranks to own its columns";
    MIVO_CHECK(static_cast<std::size_t>(nz.getSize()) * sizeof(T) <=
               static_cast<std::size_t>(std::numeric_limits<int>::max()))
        << "message too large: " << nz.getSize() << " ghost entries of rank " << p;
    block.nzc_recv_indices = nz.toDevice(device);
    block.host_indices = nz.toDevice(Device());
    block.host_recv_buffer.create(nz.getSize(), 1, Device());
    block.recv_x.create(counts.getSize(), 1, device);
    block.recv_x.fill(T(0));
    need[part] = block.host_indices;
  }
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
      << "Finish counting nonzero col indices for " << static_cast<const void*>(this) << ", rows "
      << colPartitioner.getGlobalSize();

  comu::sparse_send_recv_stream(comm, need, asked);
  for (int q = 0; q < nprocs; ++q) {
    const IndexVector& wanted = asked[static_cast<std::size_t>(q)];
    if (wanted.getSize() == 0) continue;
    SpmvSendMeta& meta = plan.send_metas[q];
    meta.host_indices = wanted;
    meta.nzc_send_indices = wanted.toDevice(device);
  }
  plan.requests.reserve(plan.recv_blocks.size());
  plan.statuses.reserve(plan.recv_blocks.size());
  plan.arrived.reserve(plan.recv_blocks.size());
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3) << "End preparing MatVec";
}

template <class T, class G, class L>
template <class U>
void SpMVCommPatternT<T, G, L>::create(const ParCSRMatrixT<U, G, L>& A) {
  const PartitionerT<G, L>& part = A.getColPartitioner();
  std::vector<IndexVector> counts(static_cast<std::size_t>(part.getNumParts()));
  for (std::size_t p = 0; p < counts.size(); ++p) {
    const CSRMatrixT<U, L> block = A.getLocalMatrix(static_cast<int>(p));
    if (block.getNnz() > 0) block.getColElementCount(counts[p]);
  }
  create(A.getComm(), A.getDevice(), part, counts);
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::sendTraversal(
    const std::function<void(int, SpmvSendMeta*)>& visit) const {
  for (auto& entry : impl_->send_metas) visit(entry.first, &entry.second);
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::recvTraversal(
    const std::function<void(int, SpmvColBlock*)>& visit) const {
  for (auto& entry : impl_->recv_blocks) visit(entry.first, &entry.second);
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::fill(T value) {
  const int rank = rankOf(impl_->comm);
  // The own block has no buffer: its recv_x is the caller's vector.
  for (auto& entry : impl_->recv_blocks) {
    if (entry.first != rank) entry.second.recv_x.fill(value);
  }
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::getRawMat(
    MatrixT<COT_RawCommPattern<T, L>, L, MatrixLayoutRowMajor>& out) const {
  out.create(static_cast<L>(impl_->recv_blocks.size()), 1, Device());
  COT_RawCommPattern<T, L>* record = out.getData();
  for (const auto& entry : impl_->recv_blocks) {
    const SpmvColBlock& block = entry.second;
    record->procId = entry.first;
    record->recv_x_size = block.recv_x.getSize();
    record->nzc_recv_size = block.nzc_recv_indices.getSize();
    record->recv_x = block.recv_x.getData();
    record->col_start = static_cast<L>(block.col_start);
    record->nzc_recv_indices = block.nzc_recv_indices.getData();
    record->recv_write_flag = block.recv_write_flag.getData();
    ++record;
  }
}

template <class T, class G, class L>
MatrixT<COT_RawCommPattern<T, L>, L, MatrixLayoutRowMajor>
SpMVCommPatternT<T, G, L>::getRawMatOnDev() const {
  MatrixT<COT_RawCommPattern<T, L>, L, MatrixLayoutRowMajor> table;
  getRawMat(table);
  return table.toDevice(impl_->device);
}

template <class T, class G, class L>
template <class U>
void SpMVCommPatternT<T, G, L>::copyStructure(SpMVCommPatternT<U, G, L>& out, bool) const {
  auto copy = std::make_shared<typename SpMVCommPatternT<U, G, L>::SpMVCommPatternImpl>();
  copy->comm = impl_->comm;
  copy->device = impl_->device;
  copy->wait_some = impl_->wait_some;
  for (const auto& entry : impl_->recv_blocks) {
    const SpmvColBlock& from = entry.second;
    auto& to = copy->recv_blocks[entry.first];
    to.col_start = from.col_start;
    to.col_end = from.col_end;
    to.nzc_recv_indices = from.nzc_recv_indices;
    to.host_indices = from.host_indices;
    // The own block alone has no list of needed columns; it takes its vector at each exchange.
    if (from.nzc_recv_indices.getSize() == 0) continue;
    to.host_recv_buffer.create(from.host_recv_buffer.getRows(), 1, Device());
    to.recv_x.create(from.recv_x.getRows(), 1, impl_->device);
    to.recv_x.fill(U(0));
  }
  for (const auto& entry : impl_->send_metas) {
    auto& to = copy->send_metas[entry.first];
    to.nzc_send_indices = entry.second.nzc_send_indices;
    to.host_indices = entry.second.host_indices;
  }
  out.impl_ = std::move(copy);
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::saveToStream(std::ostream& os, int) const {
  const auto text = [](const auto& m) { return m.toDevice(Device()).getString(); };
  const int rank = rankOf(impl_->comm), nprocs = sizeOf(impl_->comm);
  os << "SpMVCommPattern nprocs " << nprocs << " myrank " << rank << " nblocks "
     << impl_->recv_blocks.size() << '\n';
  int number = 0;
  for (const auto& entry : impl_->recv_blocks) {
    const SpmvColBlock& block = entry.second;
    os << "  blk " << number++ << " procId " << entry.first << " col_start " << block.col_start
       << " nzc_recv_indices " << text(block.nzc_recv_indices) << " recv_x " << text(block.recv_x)
       << " recv_write_flag " << text(block.recv_write_flag) << '\n';
  }
  number = 0;
  for (const auto& entry : impl_->send_metas) {
    os << "  blk " << number++ << " procId " << entry.first << " nzc_send_indices "
       << text(entry.second.nzc_send_indices) << " send_x " << text(entry.second.send_x) << '\n';
  }
}

template <class T, class G, class L>
const Device& SpMVCommPatternT<T, G, L>::getDevice() const {
  return impl_->device;
}

template <class T, class G, class L>
int SpMVCommPatternT<T, G, L>::getComm() const {
  return impl_->comm;
}

template <class T, class G, class L>
int SpMVCommPatternT<T, G, L>::getMessageTag() {
  return haloMessageTag();
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::incMessageTag() {
  advanceTag(haloMessageTag());
}

template <class T, class G, class L>
std::size_t SpMVCommPatternT<T, G, L>::getBytes() const {
  std::size_t bytes = impl_->host_x.getBytes();
  // On the host the two forms of a list or a buffer are one array.
  const auto pair = [&](const auto& on_device, const auto& on_host) {
    bytes += on_device.getBytes();
    if (on_host.getData() != on_device.getData()) bytes += on_host.getBytes();
  };
  for (const auto& entry : impl_->recv_blocks) {
    const SpmvColBlock& block = entry.second;
    pair(block.nzc_recv_indices, block.host_indices);
    pair(block.device_recv_buffer, block.host_recv_buffer);
    bytes += block.recv_x.getBytes() + block.recv_write_flag.getBytes();
  }
  for (const auto& entry : impl_->send_metas) {
    pair(entry.second.nzc_send_indices, entry.second.host_indices);
    bytes += entry.second.send_x.getBytes();
  }
  return bytes;
}

MIVO_INSTANCE_VALUES(SpMVCommPatternT, int, int)
MIVO_INSTANCE_VALUES(SpMVCommPatternT, long, int)
#define MIVO_CROSS(T, U)                                                                           \
  template void SpMVCommPatternT<T, int, int>::create(const ParCSRMatrixT<U, int, int>&);          \
  template void SpMVCommPatternT<T, long, int>::create(const ParCSRMatrixT<U, long, int>&);        \
  template void SpMVCommPatternT<T, int, int>::copyStructure(SpMVCommPatternT<U, int, int>&, bool) \
      const;                                                                                       \
  template void SpMVCommPatternT<T, long, int>::copyStructure(SpMVCommPatternT<U, long, int>&,     \
                                                              bool) const;
MIVO_INSTANTIATE_PAIRS(MIVO_CROSS)
#undef MIVO_CROSS

}  // namespace mivo
