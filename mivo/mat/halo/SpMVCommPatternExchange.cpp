// SPDX-License-Identifier: Apache-2.0

// The messages of a halo exchange plan: ghost values to those who read them, and back to their
// owners.

#include <cstddef>
#include <exception>
#include <future>
#include <thread>

#include "mivo/comu/communication_tools_impl.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/SpMVCommPattern.hpp"
#include "mivo/mat/halo/SpMVCommPatternImpl.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {
namespace {

/// Tags up to here exist in every message-passing library. Only exchanges that follow on one
/// another need different ones, so the tag on the wire may wrap around.
constexpr int kTagMask = 32767;

template <class Matrix>
std::size_t bytesOf(const Matrix& m) {
  return static_cast<std::size_t>(m.getSize()) * sizeof(*m.getData());
}

/// Ends the process where they are too many for one message.
template <class Matrix>
int messageBytes(const Matrix& m) {
  return comu::narrowToInt(bytesOf(m), "bytes");
}

}  // namespace

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::exchange(const ParMatrixT<T, G, L>& x,
                                         const BlockCallback& localCallback,
                                         const BlockCallback& recvCallback,
                                         const std::function<void()>& finishCallback,
                                         AsyncMatVecObject* async) {
  MIVO_CHECK(x.getDevice().type == impl_->device.type) << "aAxpby: A and x must on the same device";
  MIVO_CHECK(x.getComm() == impl_->comm) << "aAxpby: A and x must have the same comm";
  exchange(x.getLocalMatrix(-1), localCallback, recvCallback, finishCallback, async);
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::exchange(const Vector& x, const BlockCallback& localCallback,
                                         const BlockCallback& recvCallback,
                                         const std::function<void()>& finishCallback,
                                         AsyncMatVecObject* async) {
  MIVO_CHECK(x.getDevice().type == impl_->device.type) << "aAxpby: A and x must on the same device";
  const int rank = rankOf(impl_->comm), nprocs = sizeOf(impl_->comm);
  if (nprocs >= 2) postMessages(x, rank, takeTag(nprocs) & kTagMask);

  // The product with the own columns runs while the messages travel.
  const auto own = impl_->recv_blocks.find(rank);
  if (own != impl_->recv_blocks.end()) {
    own->second.recv_x = x;
    if (localCallback) localCallback(rank, &own->second);
  } else if (localCallback) {
    localCallback(-1, nullptr);
  }
  if (nprocs == 1) return;

  if (async == nullptr) {
    finishMessages(rank, recvCallback);
  } else {
    std::thread helper(
        [this, rank, &recvCallback](std::promise<int> promise) {
          try {
            finishMessages(rank, recvCallback);
            promise.set_value(0);
          } catch (...) {
            promise.set_exception(std::current_exception());
          }
        },
        async->arm());
    helper.join();
  }
  if (finishCallback) finishCallback();
}

template <class T, class G, class L>
int SpMVCommPatternT<T, G, L>::takeTag(int nprocs) {
  const int everyone = sizeOf(kCommWorld);
  if (nprocs < everyone) return advanceTag(impl_->tag);
  const int tag = getMessageTag();
  incMessageTag();
  return tag;
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::postMessages(const Vector& x, int rank, int tag) {
  MIVO_CHECK(x.getCols() == 1 || x.getSize() == 0) << "exchange: x.cols!= 1";
  x.toDevice(Device(), impl_->host_x);
  for (auto& entry : impl_->send_metas) {
    if (entry.first == rank) continue;
    SpmvSendMeta& meta = entry.second;
    impl_->host_x.selectRows(meta.host_indices, meta.send_x);
    MPI_Isend(meta.send_x.getData(), messageBytes(meta.send_x), MPI_BYTE, entry.first, tag,
              impl_->comm, &meta.send_request);
  }
  for (auto& entry : impl_->recv_blocks) {
    if (entry.first == rank) continue;
    SpmvColBlock& block = entry.second;
    MPI_Irecv(block.host_recv_buffer.getData(), messageBytes(block.host_recv_buffer), MPI_BYTE,
              entry.first, tag, impl_->comm, &block.recv_request);
  }
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::finishMessages(int rank, const BlockCallback& recvCallback) {
  SpMVCommPatternImpl& plan = *impl_;
  plan.requests.clear();
  for (auto& entry : plan.recv_blocks) {
    if (entry.first != rank) plan.requests.push_back(entry.second.recv_request);
  }
  const int count = static_cast<int>(plan.requests.size());
  plan.statuses.resize(plan.requests.size());

  if (plan.wait_some) {
    plan.arrived.resize(plan.requests.size());
    for (int done = 0; done < count;) {
      int arrived = 0;
      MPI_Waitsome(count, plan.requests.data(), &arrived, plan.arrived.data(),
                   plan.statuses.data());
      for (int k = 0; k < arrived; ++k) {
        const int source = plan.statuses[static_cast<std::size_t>(k)].MPI_SOURCE;
        const auto found = plan.recv_blocks.find(source);
        MIVO_CHECK(found != plan.recv_blocks.end()) << "should be error";
        deliver(source, found->second, recvCallback);
        const int slot = plan.arrived[static_cast<std::size_t>(k)];
        plan.requests[static_cast<std::size_t>(slot)] = MPI_REQUEST_NULL;
      }
      // MPI_UNDEFINED, a negative number, would say that no request was left.
      MIVO_CHECK(arrived > 0) << "halo exchange: " << count - done << " messages are missing";
      done += arrived;
    }
  } else {
    MPI_Waitall(count, plan.requests.data(), plan.statuses.data());
    for (auto& entry : plan.recv_blocks) {
      if (entry.first != rank) deliver(entry.first, entry.second, recvCallback);
    }
  }
  for (auto& entry : plan.send_metas) {
    if (entry.first == rank) continue;
    MPI_Status status;
    MPI_Wait(&entry.second.send_request, &status);
  }
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::deliver(int procId, SpmvColBlock& block,
                                        const BlockCallback& recvCallback) {
  block.recv_request = MPI_REQUEST_NULL;
  block.host_recv_buffer.toDevice(impl_->device, block.device_recv_buffer);
  block.recv_x.unselectRows(block.nzc_recv_indices, block.device_recv_buffer);
  if (recvCallback) recvCallback(procId, &block);
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::fillNeeded(T value) {
  const int rank = rankOf(impl_->comm);
  for (auto& entry : impl_->recv_blocks) {
    if (entry.first == rank) continue;
    entry.second.host_recv_buffer.fill(value);
    deliver(entry.first, entry.second, {});
  }
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::initReverseExchange() {
  for (auto& entry : impl_->recv_blocks) {
    SpmvColBlock& block = entry.second;
    block.recv_write_flag.resize(block.recv_x.getRows(), block.recv_x.getCols(), impl_->device);
    block.recv_write_flag.fill(0);
  }
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::reverseExchange(
    const ParMatrixT<T, G, L>& x, const std::function<T(const T&, const T&)>& reduce) {
  reverseExchange(x, ParMatrixT<int, G, L>(), reduce,
                  [](const int& a, const int& b) { return a > b ? a : b; });
}

template <class T, class G, class L>
void SpMVCommPatternT<T, G, L>::reverseExchange(
    const ParMatrixT<T, G, L>& x, const ParMatrixT<int, G, L>& mask,
    const std::function<T(const T&, const T&)>& reduce,
    const std::function<int(const int&, const int&)>& maskReduce) {
  using Message = std::vector<ReverseData<T, L>>;
  const int rank = rankOf(impl_->comm), nprocs = sizeOf(impl_->comm);
  std::vector<Message> outgoing(static_cast<std::size_t>(nprocs));
  std::vector<Message> incoming;
  for (const auto& entry : impl_->recv_blocks) {
    if (entry.first == rank) continue;
    const Vector values = entry.second.recv_x.toDevice(Device());
    const IndexVector flags = entry.second.recv_write_flag.toDevice(Device());
    Message& message = outgoing[static_cast<std::size_t>(entry.first)];
    for (L k = 0; k < flags.getSize(); ++k) {
      if (flags.getData()[k] != 0) message.push_back({k, values.getData()[k]});
    }
  }
  comu::sparse_send_recv_stream(impl_->comm, outgoing, incoming);

  Vector localX = x.getLocalMatrix(-1);
  IndexVector localMask = mask.getLocalMatrix(-1);
  Vector hostX = localX.toDevice(Device());
  IndexVector hostMask = localMask.toDevice(Device());
  const bool masked = localMask.getSize() > 0;
  for (const Message& message : incoming) {
    for (const ReverseData<T, L>& data : message) {
      T& value = hostX.getData()[data.index];
      value = reduce(value, data.value);
      if (masked) {
        // Only flagged entries travel, so the sender's flag is 1.
        int& flag = hostMask.getData()[data.index];
        flag = maskReduce(flag, 1);
      }
    }
  }
  const auto copyBack = [](const auto& host, auto& local) {
    const std::size_t bytes = bytesOf(host);
    if (bytes > 0 && local.getData() != host.getData()) {
      Device().rawCopyTo(bytes, host.getData(), local.getDevice(), local.getData());
    }
  };
  copyBack(hostX, localX);
  copyBack(hostMask, localMask);
}

template <class T, class G, class L>
template <class U>
CSRMatrixT<U, int> SpMVCommPatternT<T, G, L>::getGhostMatrix(
    const ParCSRMatrixT<U, G, L>& A) const {
  const int nprocs = sizeOf(impl_->comm);
  std::vector<CSRMatrixT<U, int>> asked(static_cast<std::size_t>(nprocs));
  std::vector<CSRMatrixT<U, int>> received;
  // The rows of the merged matrix, of which only these are merged.
  const auto& columns = A.getColPartitioner();
  std::vector<CSRMatrixT<U, int>> blocks(static_cast<std::size_t>(columns.getNumParts()));
  for (const auto& entry : impl_->send_metas) {
    for (std::size_t p = 0; p < blocks.size(); ++p) {
      const CSRMatrixT<U, int> block = A.getLocalMatrix(static_cast<int>(p));
      blocks[p] = CSRMatrixT<U, int>();
      // A matrix without entries may have lost its shape; nothing is selected from it then.
      if (block.getNnz() == 0) continue;
      block.getSelectedRows(entry.second.nzc_send_indices, blocks[p], true);
    }
    asked[static_cast<std::size_t>(entry.first)] =
        CSRMatrixT<U, int>::mergeCols(columns, blocks).toDevice(Device());
  }
  comu::sparse_send_recv_stream(impl_->comm, asked, received);
  for (CSRMatrixT<U, int>& block : received) block = block.toDevice(A.getDevice());
  return CSRMatrixT<U, int>::mergeRows(A.getRowPartitioner(), received);
}

MIVO_INSTANCE_VALUES(SpMVCommPatternT, int, int)
MIVO_INSTANCE_VALUES(SpMVCommPatternT, long, int)
#define MIVO_CROSS(T, U)                                                      \
  template CSRMatrixT<U, int> SpMVCommPatternT<T, int, int>::getGhostMatrix(  \
      const ParCSRMatrixT<U, int, int>&) const;                               \
  template CSRMatrixT<U, int> SpMVCommPatternT<T, long, int>::getGhostMatrix( \
      const ParCSRMatrixT<U, long, int>&) const;
MIVO_INSTANTIATE_PAIRS(MIVO_CROSS)
#undef MIVO_CROSS

#define MIVO_INST(T) \
  MIVO_INSTANTIATE_SPARSE_SEND_RECV_STREAM(std::vector<::mivo::ReverseData<T, int>>)
MIVO_INSTANTIATE_VALUES(MIVO_INST)
#undef MIVO_INST

}  // namespace mivo
