// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <vector>

#include "mivo/comu/Stream.hpp"
#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/Matrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mat/Partitioner.hpp"
#include "mivo/mat/fwd.hpp"
#include "mivo/ops/views.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// One column block of a distributed matrix with its product buffer, linked to the plan block that
/// feeds it.
template <class T, class G, class L>
struct LocalBlockT;

/// A ghost value on its way back to its owner. Packed without the gap between its fields.
template <class T, class I>
struct MIVO_API ReverseData {
  I index;  ///< position in the owner's local vector
  T value;

  int getStreamSize() const { return static_cast<int>(sizeof(I) + sizeof(T)); }
  void packStream(comu::Stream& stream) const {
    stream.pushBack(&index, static_cast<int>(sizeof(I)));
    stream.pushBack(&value, static_cast<int>(sizeof(T)));
  }
  void unpackStream(comu::Stream& stream) {
    stream.popFront(&index, static_cast<int>(sizeof(I)));
    stream.popFront(&value, static_cast<int>(sizeof(T)));
  }
};

/// Plan for exchanging vector entries between the ranks of a distributed sparse matrix.
///
/// Records which entries of the local vector every other rank needs and which ghost entries this
/// rank reads, and holds the message buffers. `exchange` overlaps the messages with a local
/// product; `reverseExchange` carries values from ghost positions back to their owners. A handle:
/// copies share the plan.
///
/// `create`, `exchange`, `reverseExchange` and `getGhostMatrix` are collective. One thread at a
/// time.
template <class T, class G, class L>
class MIVO_API SpMVCommPatternT {
 public:
  using Vector = MatrixT<T, L, MatrixLayoutRowMajor>;
  using AsyncMatVecObject = typename ParMatrixFreeT<T, G, L>::AsyncMatVecObject;

  /// Ghost side: a block of columns that another rank owns (or this one).
  struct SpmvColBlock {
    G col_start = 0;  ///< first global column
    G col_end = 0;    ///< one past the last global column
    IndexVector
        nzc_recv_indices;      ///< device: block-local columns that the local rows touch, ascending
    IndexVector host_indices;  ///< the same on the host
    Vector recv_x;             ///< device: input of the block, one element per column
    Vector host_recv_buffer;   ///< packed message, one element per needed column
    Vector device_recv_buffer;    ///< the same on the plan's device
    IndexVector recv_write_flag;  ///< per element of recv_x: written for the reverse exchange
    int recv_request = 0x2c000000;
    LocalBlockT<T, G, L>* block = nullptr;  ///< set by `ParCSRMatrixT::prepareMatVec`
  };

  /// Owner side: what one other rank wants.
  struct SpmvSendMeta {
    IndexVector nzc_send_indices;  ///< device: local rows wanted
    IndexVector host_indices;      ///< the same on the host
    Vector send_x;                 ///< host: packed message
    int send_request = 0x2c000000;
  };

  using BlockCallback = std::function<void(int procId, SpmvColBlock* block)>;

  SpMVCommPatternT();

  /// `colCounts[p]` counts the stored entries of each column of block p; empty for a block without
  /// entries.
  void create(int comm, const Device& device, const PartitionerT<G, L>& colPartitioner,
              const std::vector<IndexVector>& colCounts);
  template <class U>
  void create(const ParCSRMatrixT<U, G, L>& A);

  /// Posts all messages, calls `localCallback` for the own block (with -1 and null where there is
  /// none), then `recvCallback` for each block as its message arrives, then, on several ranks,
  /// `finishCallback`. Callbacks may be empty. With `async` the receiving part runs on a helper
  /// thread that is joined before the call returns; the message layer must then be started with at
  /// least the serialized thread level.
  void exchange(const ParMatrixT<T, G, L>& x, const BlockCallback& localCallback,
                const BlockCallback& recvCallback, const std::function<void()>& finishCallback,
                AsyncMatVecObject* async);
  void exchange(const Vector& x, const BlockCallback& localCallback,
                const BlockCallback& recvCallback, const std::function<void()>& finishCallback,
                AsyncMatVecObject* async);

  /// In rank order, the own rank's entry included.
  void sendTraversal(const std::function<void(int, SpmvSendMeta*)>& visit) const;
  void recvTraversal(const std::function<void(int, SpmvColBlock*)>& visit) const;

  /// Sets every ghost value.
  void fill(T value);
  /// Sets the ghost values that the local rows read, as an exchange of a vector of this value does.
  /// Local.
  void fillNeeded(T value);
  /// Clears the write flags of all ghost entries.
  void initReverseExchange();
  /// Sends ghost entries whose flag is set to their owners, which fold them into x by `reduce`, and
  /// into `mask` (where that has elements) by `maskReduce`, whose second argument is 1.
  void reverseExchange(const ParMatrixT<T, G, L>& x, const ParMatrixT<int, G, L>& mask,
                       const std::function<T(const T&, const T&)>& reduce,
                       const std::function<int(const int&, const int&)>& maskReduce);
  void reverseExchange(const ParMatrixT<T, G, L>& x,
                       const std::function<T(const T&, const T&)>& reduce);

  /// One record per ghost block, in rank order, as a host table.
  void getRawMat(MatrixT<COT_RawCommPattern<T, L>, L, MatrixLayoutRowMajor>& out) const;
  /// The same on the plan's device.
  MatrixT<COT_RawCommPattern<T, L>, L, MatrixLayoutRowMajor> getRawMatOnDev() const;

  /// The rows of A that this rank's ghost columns name, at their global row numbers, with global
  /// columns.
  template <class U>
  CSRMatrixT<U, int> getGhostMatrix(const ParCSRMatrixT<U, G, L>& A) const;
  /// The plan for another value type; index lists are shared.
  template <class U>
  void copyStructure(SpMVCommPatternT<U, G, L>& out, bool flag) const;

  /// Dump for people.
  void saveToStream(std::ostream& os, int precision) const;

  const Device& getDevice() const;
  int getComm() const;
  /// Bytes of this rank's index lists and buffers.
  std::size_t getBytes() const;
  /// Tag of the next exchange: one counter for all plans whose communicator has all processes. A
  /// plan on fewer counts its own exchanges, since the other processes do not see them.
  static int getMessageTag();
  static void incMessageTag();

  struct SpMVCommPatternImpl;

 private:
  template <class, class, class>
  friend class SpMVCommPatternT;
  template <class, class, class>
  friend class ParCSRMatrixT;

  /// An empty plan for this communicator and device.
  void setPlace(int comm, const Device& device);
  /// Tag of an exchange on `nprocs` ranks, the same on all of them.
  int takeTag(int nprocs);
  /// Sends what the other ranks want of x and opens the receipts.
  void postMessages(const Vector& x, int rank, int tag);
  /// Waits for the receipts and hands each block on, in the order of arrival or of the ranks, then
  /// waits for the sends.
  void finishMessages(int rank, const BlockCallback& recvCallback);
  void deliver(int procId, SpmvColBlock& block, const BlockCallback& recvCallback);

  std::shared_ptr<SpMVCommPatternImpl> impl_;
};

MIVO_EXTERN_VALUES(SpMVCommPatternT, int, int)
MIVO_EXTERN_VALUES(SpMVCommPatternT, long, int)

}  // namespace mivo
