// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/CSRMatrix.hpp"

#include <cstddef>
#include <limits>
#include <type_traits>

#include "mivo/ops/BlasOps.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/memory.hpp"

namespace mivo {

namespace {

constexpr const char* kColumns = "columns of a sparse matrix";
constexpr const char* kValues = "values of a sparse matrix";

/// The pointers of an empty matrix are null, which must not reach a copy.
template <class X>
void copyArray(std::size_t count, const X* from, const Device& fromDevice, X* to,
               const Device& toDevice) {
  if (count > 0 && from != nullptr) fromDevice.rawCopyTo(count * sizeof(X), from, toDevice, to);
}

template <class I>
std::size_t rowPtrCount(I rows) {
  return rows > 0 ? static_cast<std::size_t>(rows) + 1 : 0;
}

/// Row pointers of a matrix without entries stand at 0, so that kernels may walk it.
template <class I>
I* allocateRowPtr(I rows, const Device& device, bool clear) {
  if (rows <= 0) return nullptr;
  MIVO_CHECK(rows < std::numeric_limits<I>::max())
      << "CSRMatrix: " << rows << " rows have no row pointers in the index type";
  const std::size_t count = rowPtrCount(rows);
  I* row_ptr = detail::allocate<I>(device, count, "row pointers of a sparse matrix");
  if (clear && row_ptr != nullptr) {
    BlasOps<I, long>::fill(device, static_cast<long>(count), I(0), row_ptr);
  }
  return row_ptr;
}

template <class X, class I>
X* allocateEntries(I nnz, const Device& device, const char* what) {
  return nnz > 0 ? detail::allocate<X>(device, static_cast<std::size_t>(nnz), what) : nullptr;
}

template <class T, class I>
void copyArrays(const CSRMatrixT<T, I>& from, CSRMatrixT<T, I>& to) {
  const std::size_t nnz = static_cast<std::size_t>(from.getNnz());
  copyArray(rowPtrCount(from.getRows()), from.getRowPtr(), from.getDevice(), to.getRowPtr(),
            to.getDevice());
  copyArray(nnz, from.getColIdx(), from.getDevice(), to.getColIdx(), to.getDevice());
  copyArray(nnz, from.getValues(), from.getDevice(), to.getValues(), to.getDevice());
}

}  // namespace

template <class T, class I>
CSRMatrixT<T, I>::CSRMatrixImpl::~CSRMatrixImpl() {
  release();
}

template <class T, class I>
void CSRMatrixT<T, I>::CSRMatrixImpl::release() {
  if (row_ptr != nullptr) device.rawFree(row_ptr);
  if (col_idx != nullptr) device.rawFree(col_idx);
  if (values != nullptr) device.rawFree(values);
  row_ptr = nullptr;
  col_idx = nullptr;
  values = nullptr;
  nnz = 0;
}

template <class T, class I>
CSRMatrixT<T, I>::CSRMatrixT() {
  create(0, 0, 0, Device(0, 0));
}

template <class T, class I>
void CSRMatrixT<T, I>::create(I rows, I cols, I nnz, const Device& device) {
  auto fresh = std::make_shared<CSRMatrixImpl>();
  fresh->device = device;
  fresh->rows = rows;
  fresh->cols = cols;
  fresh->nnz = nnz;
  fresh->row_ptr = allocateRowPtr(rows, device, nnz <= 0);
  fresh->col_idx = allocateEntries<I>(nnz, device, kColumns);
  fresh->values = allocateEntries<T>(nnz, device, kValues);
  impl_ = fresh;
}

template <class T, class I>
void CSRMatrixT<T, I>::resize(I rows, I cols, const Device& device) {
  if (rows == impl_->rows && device == impl_->device) {
    impl_->cols = cols;
    return;
  }
  const Device target = device;  // the argument may be this matrix's own
  impl_->release();
  impl_->rows = rows;
  impl_->cols = cols;
  impl_->device = target;
  impl_->row_ptr = allocateRowPtr(rows, target, true);
}

template <class T, class I>
void CSRMatrixT<T, I>::resizeNnz(I nnz, I cols) {
  MIVO_CHECK(impl_->col_idx == nullptr && impl_->values == nullptr);
  if (cols > 0) impl_->cols = cols;
  if (nnz == impl_->nnz) return;
  impl_->nnz = nnz;
  impl_->col_idx = allocateEntries<I>(nnz, impl_->device, kColumns);
  impl_->values = allocateEntries<T>(nnz, impl_->device, kValues);
}

template <class T, class I>
void CSRMatrixT<T, I>::shrinkNnz(I nnz) {
  MIVO_CHECK(nnz >= 0 && nnz <= getNnz())
      << "CSRMatrix: " << getNnz() << " entries cannot shrink to " << nnz;
  if (nnz > 0) {
    const Device& device = impl_->device;
    const auto giveBack = [&](auto*& array, const char* what) {
      const auto all = array;
      array = allocateEntries<std::remove_reference_t<decltype(*all)>>(nnz, device, what);
      copyArray(static_cast<std::size_t>(nnz), all, device, array, device);
      device.rawFree(all);
    };
    if (device.type != Device::kHost && nnz < impl_->nnz) {
      giveBack(impl_->col_idx, kColumns);
      giveBack(impl_->values, kValues);
    }
    impl_->nnz = nnz;
    return;
  }
  if (impl_->col_idx != nullptr) impl_->device.rawFree(impl_->col_idx);
  if (impl_->values != nullptr) impl_->device.rawFree(impl_->values);
  impl_->col_idx = nullptr;
  impl_->values = nullptr;
  impl_->nnz = 0;
}

template <class T, class I>
I CSRMatrixT<T, I>::evaluateNnzs() const {
  I nnz = 0;
  if (getRows() > 0) copyArray(1, getRowPtr() + getRows(), getDevice(), &nnz, Device());
  return nnz;
}

template <class T, class I>
void CSRMatrixT<T, I>::deepCopy(CSRMatrixT& out) const {
  if (getNnz() == 0) {
    out = CSRMatrixT();
    return;
  }
  if (out.impl_ == impl_) return;
  if (out.getRows() != getRows() || out.getCols() != getCols() || out.getNnz() != getNnz() ||
      out.getDevice() != getDevice()) {
    out.create(getRows(), getCols(), getNnz(), getDevice());
  }
  copyArrays(*this, out);
}

template <class T, class I>
CSRMatrixT<T, I> CSRMatrixT<T, I>::toDevice(const Device& device) const {
  CSRMatrixT out;
  if (getNnz() == 0) return out;
  out.create(getRows(), getCols(), getNnz(), device);
  copyArrays(*this, out);
  return out;
}

template <class T, class I>
template <class U>
void CSRMatrixT<T, I>::copyStructure(CSRMatrixT<U, I>& out) const {
  CSRMatrixT<U, I> result;
  result.create(getRows(), getCols(), getNnz(), getDevice());
  copyArray(rowPtrCount(getRows()), getRowPtr(), getDevice(), result.getRowPtr(), getDevice());
  copyArray(static_cast<std::size_t>(getNnz()), getColIdx(), getDevice(), result.getColIdx(),
            getDevice());
  out = result;
}

template <class T, class I>
typename CSRMatrixT<T, I>::View CSRMatrixT<T, I>::getRawMat() const {
  I* const row_ptr = getRowPtr();
  return {getRows(),   getCols(),  getNnz(), row_ptr, row_ptr != nullptr ? row_ptr + 1 : nullptr,
          getColIdx(), getValues()};
}

MIVO_INSTANCE_VALUES(CSRMatrixT, int)
#define MIVO_COPY(T, U) \
  template void CSRMatrixT<T, int>::copyStructure<U>(CSRMatrixT<U, int>&) const;
MIVO_INSTANTIATE_PAIRS(MIVO_COPY)
#undef MIVO_COPY

#define MIVO_INSTANCE(T)                                                           \
  template CSRMatrixT<T, long>::CSRMatrixT();                                      \
  template void CSRMatrixT<T, long>::create(long, long, long, const Device&);      \
  template void CSRMatrixT<T, long>::resize(long, long, const Device&);            \
  template void CSRMatrixT<T, long>::resizeNnz(long, long);                        \
  template void CSRMatrixT<T, long>::shrinkNnz(long);                              \
  template long CSRMatrixT<T, long>::evaluateNnzs() const;                         \
  template void CSRMatrixT<T, long>::deepCopy(CSRMatrixT<T, long>&) const;         \
  template CSRMatrixT<T, long> CSRMatrixT<T, long>::toDevice(const Device&) const; \
  template typename CSRMatrixT<T, long>::View CSRMatrixT<T, long>::getRawMat() const;
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
