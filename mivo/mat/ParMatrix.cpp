// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/ParMatrix.hpp"

#include <limits>

#include "mivo/ops/BlasOps.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {
namespace {

/// Rows of a part; empty where the partition has no offsets or fewer parts than the communicator
/// ranks.
template <class G, class L>
void ownRange(const PartitionerT<G, L>& part, int comm, G& begin, G& end) {
  const int rank = rankOf(comm);
  begin = 0;
  end = 0;
  if (rank < part.getNumParts()) part.getOwnerShipRangeForPart(static_cast<L>(rank), &begin, &end);
}

template <class L, class G>
L narrow(G count, const char* what) {
  MIVO_CHECK(count <= static_cast<G>(std::numeric_limits<L>::max()))
      << "ParMatrix: " << count << " " << what << " exceed the local index type";
  return static_cast<L>(count);
}

}  // namespace

template <class T, class G, class L>
ParMatrixT<T, G, L>::ParMatrixT() : impl_(std::make_shared<ParMatrixImpl>()) {}

template <class T, class G, class L>
ParMatrixT<T, G, L>::ParMatrixT(G rows, const Device& device, int comm) {
  create(rows, device, comm);
}

template <class T, class G, class L>
ParMatrixT<T, G, L>::ParMatrixT(G rows, G cols, const Device& device, int comm) {
  create(rows, cols, device, comm);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::create(G rows, const Device& device, int comm) {
  create(rows, 1, device, comm);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::create(G rows, G cols, const Device& device, int comm) {
  Partitioner rowPart;
  Partitioner colPart;
  if (rows > 0 && cols > 0) {
    const int size = sizeOf(comm);
    rowPart.create(rows, static_cast<L>(size));
    colPart.create(cols, static_cast<L>(size));
  }
  createShape(rows, cols, rowPart, colPart, device, comm);
  createLocal();
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::create(const Partitioner& part, const Device& device, int comm) {
  Partitioner single;
  single.create(1, 1);
  create(part, single, device, comm);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::create(const Partitioner& rowPart, const Partitioner& colPart,
                                 const Device& device, int comm) {
  createShape(rowPart.getGlobalSize(), colPart.getGlobalSize(), rowPart, colPart, device, comm);
  createLocal();
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::createShape(G rows, G cols, const Partitioner& rowPart,
                                      const Partitioner& colPart, const Device& device, int comm) {
  G size = 0;
  MIVO_CHECK(!__builtin_mul_overflow(rows, cols, &size))
      << "ParMatrix: " << rows << " x " << cols << " elements exceed the global index type";
  // The arguments may be members of this object's present implementation.
  auto impl = std::make_shared<ParMatrixImpl>();
  impl->device = device;
  impl->comm = comm;
  impl->rows = rows;
  impl->cols = cols;
  impl->row_part = rowPart;
  impl->col_part = colPart;
  impl_ = impl;
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::createLocal() {
  G begin = 0;
  G end = 0;
  getOwnerShipRange(&begin, &end);
  impl_->local.create(narrow<L>(end - begin, "rows of one rank"), narrow<L>(getCols(), "columns"),
                      getDevice());
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::createSeq(const Local& m, int comm) {
  int size = 1;
  if (comm != kCommSelf) size = sizeOf(comm);
  MIVO_CHECK_AT(comm == kCommSelf || size == 1, "ParMatrix", 96);
  Partitioner rowPart;
  Partitioner colPart;
  if (m.getSize() > 0) {
    rowPart.create(m.getRows(), 1);
    colPart.create(m.getCols(), 1);
  }
  createShape(m.getRows(), m.getCols(), rowPart, colPart, m.getDevice(), comm);
  impl_->local = m;
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::resize(G rows, G cols, const Device& device, int comm) {
  if (rows == getRows() && cols == getCols() && comm == getComm() &&
      device.type == getDevice().type) {
    return;
  }
  create(rows, cols, device, comm);
}

template <class T, class G, class L>
G ParMatrixT<T, G, L>::getRows() const {
  return impl_->rows;
}

template <class T, class G, class L>
G ParMatrixT<T, G, L>::getCols() const {
  return impl_->cols;
}

template <class T, class G, class L>
G ParMatrixT<T, G, L>::getSize() const {
  return impl_->rows * impl_->cols;
}

template <class T, class G, class L>
int ParMatrixT<T, G, L>::getComm() const {
  return impl_->comm;
}

template <class T, class G, class L>
const Device& ParMatrixT<T, G, L>::getDevice() const {
  return impl_->device;
}

template <class T, class G, class L>
const PartitionerT<G, L>& ParMatrixT<T, G, L>::getRowPartitioner() const {
  return impl_->row_part;
}

template <class T, class G, class L>
const PartitionerT<G, L>& ParMatrixT<T, G, L>::getColPartitioner() const {
  return impl_->col_part;
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::getOwnerShipRange(G* begin, G* end) const {
  G first = 0;
  G last = 0;
  ownRange(impl_->row_part, impl_->comm, first, last);
  if (begin != nullptr) *begin = first;
  if (end != nullptr) *end = last;
}

template <class T, class G, class L>
MatrixT<T, L, MatrixLayoutRowMajor> ParMatrixT<T, G, L>::getLocalMatrix(int) const {
  return impl_->local;
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::setLocalMatrix(const std::vector<Local>& blocks) {
  MIVO_CHECK_AT(blocks.size() == 1, "ParMatrix", 282) << "only support localMat.size == 1";
  impl_->local = blocks[0];
}

template <class T, class G, class L>
template <class U>
bool ParMatrixT<T, G, L>::hasShapeOf(const ParMatrixT<U, G, L>& other) const {
  return hasSpreadOf(other) && getDevice().type == other.getDevice().type;
}

template <class T, class G, class L>
template <class U>
bool ParMatrixT<T, G, L>::hasSpreadOf(const ParMatrixT<U, G, L>& other) const {
  return getRows() == other.getRows() && getCols() == other.getCols() &&
         getComm() == other.getComm() && getRowPartitioner() == other.getRowPartitioner() &&
         getColPartitioner() == other.getColPartitioner();
}

template <class T, class G, class L>
bool ParMatrixT<T, G, L>::setElementValue(G i, G j, const T& v) {
  G begin = 0;
  G end = 0;
  getOwnerShipRange(&begin, &end);
  if (i < begin || i >= end || j < 0 || j >= getCols()) return false;
  return impl_->local.setElementValue(static_cast<L>(i - begin), static_cast<L>(j), v);
}

template <class T, class G, class L>
T ParMatrixT<T, G, L>::getElementValue(G i, G j, bool* ok) const {
  G begin = 0;
  G end = 0;
  getOwnerShipRange(&begin, &end);
  if (i < begin || i >= end || j < 0 || j >= getCols()) {
    if (ok != nullptr) *ok = false;
    return T(0);
  }
  return impl_->local.getElementValue(static_cast<L>(i - begin), static_cast<L>(j), ok);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::deepCopy(ParMatrixT& out) const {
  const ParMatrixT source = *this;
  source.copySpread(out);
  out.impl_->device = source.getDevice();
  source.impl_->local.deepCopy(out.impl_->local);
}

template <class T, class G, class L>
ParMatrixT<T, G, L> ParMatrixT<T, G, L>::deepCopy() const {
  ParMatrixT out;
  deepCopy(out);
  return out;
}

template <class T, class G, class L>
ParMatrixT<T, G, L> ParMatrixT<T, G, L>::toDevice(const Device& d) const {
  ParMatrixT out;
  toDevice(d, out);
  return out;
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::toDevice(const Device& d, ParMatrixT& out) const {
  const ParMatrixT source = *this;
  const Device target = d;  // may be that of `out` or of its local block
  source.copySpread(out);
  out.impl_->device = target;
  source.impl_->local.toDevice(target, out.impl_->local);
}

/// Makes `out` an object of its own with this shape and comm, and an unshaped local block when it
/// had another.
template <class T, class G, class L>
template <class U>
void ParMatrixT<T, G, L>::copySpread(ParMatrixT<U, G, L>& out) const {
  const bool same =
      static_cast<const void*>(out.impl_.get()) == static_cast<const void*>(impl_.get());
  if (same || !hasSpreadOf(out)) {
    out.createShape(getRows(), getCols(), getRowPartitioner(), getColPartitioner(), getDevice(),
                    getComm());
  }
}

template <class T, class G, class L>
template <class U>
void ParMatrixT<T, G, L>::copyStructure(ParMatrixT<U, G, L>& out) const {
  out.createShape(getRows(), getCols(), getRowPartitioner(), getColPartitioner(), getDevice(),
                  getComm());
  out.createLocal();
}

template <class T, class G, class L>
ParMatrixT<RealType<T>, G, L> ParMatrixT<T, G, L>::getReal() const {
  ParMatrixT<R, G, L> out;
  getReal(out);
  return out;
}

template <class T, class G, class L>
ParMatrixT<RealType<T>, G, L> ParMatrixT<T, G, L>::getImag() const {
  ParMatrixT<R, G, L> out;
  getImag(out);
  return out;
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::getReal(ParMatrixT<R, G, L>& out) const {
  const Local x = impl_->local;
  copySpread(out);
  auto& y = out.impl_->local;
  out.impl_->device = x.getDevice();
  y.resize(x.getRows(), x.getCols(), x.getDevice());
  BlasOps<T, L>::get_real(x.getDevice(), x.getSize(), x.getData(), y.getData());
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::getImag(ParMatrixT<R, G, L>& out) const {
  const Local x = impl_->local;
  copySpread(out);
  auto& y = out.impl_->local;
  out.impl_->device = x.getDevice();
  y.resize(x.getRows(), x.getCols(), x.getDevice());
  BlasOps<T, L>::get_imag(x.getDevice(), x.getSize(), x.getData(), y.getData());
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::createComplex(const ParMatrixT<R, G, L>& re,
                                        const ParMatrixT<R, G, L>& im) {
  // Which part is missing is asked of the whole matrix: a rank without rows must not take the empty
  // one.
  const ParMatrixT<R, G, L> shape = re.getRows() > 0 && re.getCols() > 0 ? re : im;
  Local local;
  local.createComplex(re.impl_->local, im.impl_->local);
  createShape(shape.getRows(), shape.getCols(), shape.getRowPartitioner(),
              shape.getColPartitioner(), shape.getDevice(), shape.getComm());
  if (local.getSize() > 0) {
    impl_->local = local;
  } else {
    createLocal();
  }
}

MIVO_INSTANCE_VALUES(ParMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParMatrixT, long, int)
#define MIVO_PAIR(T, U)                                                                      \
  template bool ParMatrixT<T, int, int>::hasShapeOf(const ParMatrixT<U, int, int>&) const;   \
  template bool ParMatrixT<T, long, int>::hasShapeOf(const ParMatrixT<U, long, int>&) const; \
  template void ParMatrixT<T, int, int>::copyStructure(ParMatrixT<U, int, int>&) const;      \
  template void ParMatrixT<T, long, int>::copyStructure(ParMatrixT<U, long, int>&) const;
MIVO_INSTANTIATE_PAIRS(MIVO_PAIR)
#undef MIVO_PAIR

}  // namespace mivo
