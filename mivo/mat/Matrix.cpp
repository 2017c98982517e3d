// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/Matrix.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <sstream>
#include <type_traits>
#include <utility>

#include "mivo/mat/Partitioner.hpp"
#include "mivo/ops/BlasOps.hpp"
#include "mivo/ops/MatOps.hpp"

namespace mivo {
namespace {

/// The splitmix64 generator (Steele, Lea, Flood, Fast splittable pseudorandom number generators,
/// 2014).
std::uint64_t nextRandom(std::uint64_t& state) {
  std::uint64_t z = (state += 0x9e3779b97f4a7c15u);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return z ^ (z >> 31);
}

template <class T>
T randomValue(std::uint64_t& state) {
  if constexpr (kIsComplex<T>) {
    const auto re = randomValue<RealType<T>>(state);
    const auto im = randomValue<RealType<T>>(state);
    return {re, im};
  } else if constexpr (std::is_same_v<T, double>) {
    return static_cast<double>(nextRandom(state) >> 11) * 0x1p-53;
  } else if constexpr (std::is_same_v<T, float>) {
    return static_cast<float>(nextRandom(state) >> 40) * 0x1p-24f;
  } else {
    return static_cast<T>(nextRandom(state) % 100);
  }
}

std::mutex gs_random_lock;
std::uint64_t gs_random_state = 20210401;

template <class Matrix>
bool sameSize(const Matrix& x, const Matrix& y) {
  return x.getSize() == y.getSize();
}

template <class Matrix, class Other>
bool sameDevice(const Matrix& x, const Other& y) {
  return x.getDevice().type == y.getDevice().type;
}

}  // namespace

template <class T, class I, class Layout>
MatrixT<T, I, Layout> MatrixT<T, I, Layout>::rand(I rows, I cols) {
  MatrixT out;
  out.create(rows, cols, Device());
  const std::lock_guard<std::mutex> guard(gs_random_lock);
  for (I k = 0; k < out.getSize(); ++k) out.getData()[k] = randomValue<T>(gs_random_state);
  return out;
}

template <class T, class I, class Layout>
MatrixT<T, I, Layout> MatrixT<T, I, Layout>::range(I begin, I end, I step) {
  MIVO_CHECK(step > 0) << "range: the step must be positive, it is " << step;
  const std::int64_t span = static_cast<std::int64_t>(end) - begin;
  MatrixT out;
  out.create(span > 0 ? static_cast<I>((span - 1) / step + 1) : 0, 1, Device());
  for (I k = 0; k < out.getSize(); ++k) {
    out.getData()[k] = T(static_cast<R>(begin + static_cast<std::int64_t>(k) * step));
  }
  return out;
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::fill(T value) {
  BlasOps<T, I>::fill(getDevice(), getSize(), value, getData());
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::createComplex(const MatrixT<R, I, Layout>& re,
                                          const MatrixT<R, I, Layout>& im) {
  if constexpr (kIsComplex<T>) {
    const auto& shape = re.getSize() > 0 ? re : im;
    MIVO_CHECK(re.getSize() == 0 || im.getSize() == 0 || sameSize(re, im))
        << "createComplex: re and im must have the same size";
    MIVO_CHECK(re.getSize() == 0 || im.getSize() == 0 || sameDevice(re, im))
        << "createComplex: re and im must be on the same device";
    MatrixT out;
    out.create(shape.getRows(), shape.getCols(), shape.getDevice());
    BlasOps<R, I>::create_complex(out.getDevice(), out.getSize(),
                                  re.getSize() > 0 ? re.getData() : nullptr,
                                  im.getSize() > 0 ? im.getData() : nullptr, out.getData());
    *this = out;
  } else {
    MatrixT out;
    re.deepCopy(out);
    *this = out;
  }
}

template <class T, class I, class Layout>
T MatrixT<T, I, Layout>::getElementValue(I i, I j, bool* ok) const {
  const bool inside = i >= 0 && i < getRows() && j >= 0 && j < getCols();
  if (ok != nullptr) *ok = inside;
  T value{};
  if (inside) {
    MatrixT buffer;
    buffer.create(1, 1, getDevice());
    MatOps<T, I, Layout>::get_element_value(getDevice(), i, j, getData(), getCols(),
                                            buffer.getData());
    getDevice().rawCopyTo(sizeof(T), buffer.getData(), Device(), &value);
  }
  return value;
}

template <class T, class I, class Layout>
bool MatrixT<T, I, Layout>::setElementValue(I i, I j, const T& value) {
  const bool inside = i >= 0 && i < getRows() && j >= 0 && j < getCols();
  if (inside) {
    MatOps<T, I, Layout>::set_element_value(getDevice(), i, j, getData(), getCols(), value);
  }
  return inside;
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::selectRows(const IndexVector& indices, MatrixT& out) const {
  MIVO_CHECK_AT(sameDevice(*this, indices), "Matrix", 436)
      << "selectRows: indices should on the same device";
  const I n = indices.getSize();
  const MatrixT source = *this;
  if (out.impl_ == impl_) out = MatrixT();
  out.resize(n, source.getCols(), source.getDevice());
  MatOps<T, I, Layout>::select_rows(source.getDevice(), n, source.getCols(), indices.getData(),
                                    source.getData(), source.getCols(), out.getData(),
                                    out.getCols());
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::unselectRows(const IndexVector& indices, const MatrixT& sub) {
  MIVO_CHECK_AT(sameDevice(*this, indices) && sameDevice(*this, sub), "Matrix", 441)
      << "selectRows: indices and sub_array should on the same device";
  MatOps<T, I, Layout>::unselect_rows(getDevice(), indices.getSize(), getCols(), indices.getData(),
                                      sub.getData(), sub.getCols(), getData(), getCols());
}

template <class T, class I, class Layout>
template <class G, class L>
void MatrixT<T, I, Layout>::splitRows(const PartitionerT<G, L>& part,
                                      std::vector<MatrixT>& out) const {
  MIVO_CHECK_AT(static_cast<G>(getRows()) == part.getGlobalSize(), "Matrix", 677)
      << "splitRows: rows.size() != partitioner.getGlobalSize()";
  std::vector<MatrixT> blocks(static_cast<std::size_t>(part.getNumParts()));
  for (L p = 0; p < part.getNumParts(); ++p) {
    G begin = 0;
    part.getOwnerShipRangeForPart(p, &begin, nullptr);
    MatrixT& block = blocks[static_cast<std::size_t>(p)];
    block.create(static_cast<I>(part.getLocalSizeForPart(p)), getCols(), Device());
    const std::size_t offset =
        static_cast<std::size_t>(begin) * static_cast<std::size_t>(getCols());
    const std::size_t bytes = static_cast<std::size_t>(block.getSize()) * sizeof(T);
    if (bytes > 0) getDevice().rawCopyTo(bytes, getData() + offset, Device(), block.getData());
  }
  out = std::move(blocks);
}

template <class T, class I, class Layout>
template <class G, class L>
MatrixT<T, I, Layout> MatrixT<T, I, Layout>::mergeRows(const PartitionerT<G, L>& part,
                                                       const std::vector<MatrixT>& parts) {
  MIVO_CHECK(parts.size() == static_cast<std::size_t>(part.getNumParts()))
      << "mergeRows: " << parts.size() << " blocks for " << part.getNumParts() << " parts";
  I cols = 0;
  Device device;
  for (const MatrixT& block : parts) {
    if (block.getSize() > 0) {
      cols = block.getCols();
      device = block.getDevice();
      break;
    }
    cols = std::max(cols, block.getCols());
  }
  MIVO_CHECK(static_cast<long>(part.getGlobalSize()) <= std::numeric_limits<I>::max())
      << "mergeRows: " << part.getGlobalSize() << " rows exceed the index type";
  MatrixT out;
  out.create(static_cast<I>(part.getGlobalSize()), cols, device);
  for (L p = 0; p < part.getNumParts(); ++p) {
    const MatrixT& block = parts[static_cast<std::size_t>(p)];
    const L rows = part.getLocalSizeForPart(p);
    // A block of no elements stands for no rows, or for a matrix without columns.
    MIVO_CHECK(static_cast<L>(block.getRows()) == rows && (rows == 0 || block.getCols() == cols))
        << "mergeRows: block " << p << " is " << block.getRows() << " x " << block.getCols()
        << ", expected " << rows << " x " << cols;
    if (block.getSize() == 0) continue;
    G begin = 0;
    part.getOwnerShipRangeForPart(p, &begin, nullptr);
    const std::size_t offset = static_cast<std::size_t>(begin) * static_cast<std::size_t>(cols);
    block.getDevice().rawCopyTo(static_cast<std::size_t>(block.getSize()) * sizeof(T),
                                block.getData(), device, out.getData() + offset);
  }
  return out;
}

template <class T, class I, class Layout>
MatrixT<I, I, Layout> MatrixT<T, I, Layout>::getNonZeroIndices() const {
  MatrixT<I, I, Layout> count;
  MatrixT<I, I, Layout> indices;
  count.create(1, 1, getDevice());
  BlasOps<T, I>::get_nonzero_indices(getDevice(), getSize(), getData(), nullptr, count.getData());
  I found = 0;
  getDevice().rawCopyTo(sizeof(I), count.getData(), Device(), &found);
  indices.create(found, 1, getDevice());
  if (found > 0) {
    BlasOps<T, I>::get_nonzero_indices(getDevice(), getSize(), getData(), indices.getData(),
                                       count.getData());
  }
  return indices;
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::axpy(const T& a, const MatrixT& x, MatrixT& y) {
  MIVO_CHECK(sameSize(x, y)) << "axpy: x and y must have the same size";
  MIVO_CHECK(sameDevice(x, y)) << "axpy: x and y must be on the same device";
  BlasOps<T, I>::axpy(x.getDevice(), x.getSize(), a, x.getData(), y.getData());
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::axpby(const T& a, const MatrixT& x, const T& b, MatrixT& y) {
  MIVO_CHECK(sameSize(x, y)) << "axpby: x and y must have the same size";
  MIVO_CHECK(sameDevice(x, y)) << "axpby: x and y must be on the same device";
  BlasOps<T, I>::axpby(x.getDevice(), x.getSize(), a, x.getData(), b, y.getData());
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::axpbypz(const T& a, const MatrixT& x, const T& b, const MatrixT& y,
                                    MatrixT& z) {
  MIVO_CHECK(sameSize(x, y)) << "axpbypz: x and y must have the same size";
  MIVO_CHECK(sameDevice(x, y)) << "axpbypz: x and y must be on the same device";
  MIVO_CHECK(sameSize(x, z)) << "axpbypz: x and z must have the same size";
  MIVO_CHECK(sameDevice(x, z)) << "axpbypz: x and z must be on the same device";
  BlasOps<T, I>::axpbypz(x.getDevice(), x.getSize(), a, x.getData(), b, y.getData(), z.getData());
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::axpbypcz(const T& a, const MatrixT& x, const T& b, const MatrixT& y,
                                     const T& c, MatrixT& z) {
  MIVO_CHECK(sameSize(x, y)) << "axpbypcz: x and y must have the same size";
  MIVO_CHECK(sameDevice(x, y)) << "axpbypcz: x and y must be on the same device";
  MIVO_CHECK(sameSize(x, z)) << "axpbypcz: x and z must have the same size";
  MIVO_CHECK(sameDevice(x, z)) << "axpbypcz: x and z must be on the same device";
  BlasOps<T, I>::axpbypcz(x.getDevice(), x.getSize(), a, x.getData(), b, y.getData(), c,
                          z.getData());
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::axypbz(T a, const MatrixT& x, const MatrixT& y, T b, MatrixT& z) {
  MIVO_CHECK(sameSize(x, y)) << "axypbz: x and y must have the same size";
  MIVO_CHECK(sameDevice(x, y)) << "axypbz: x and y must be on the same device";
  MIVO_CHECK(sameSize(x, z)) << "axypbz: x and z must have the same size";
  MIVO_CHECK(sameDevice(x, z)) << "axypbz: x and z must be on the same device";
  BlasOps<T, I>::axypbz(x.getDevice(), x.getSize(), a, x.getData(), y.getData(), b, z.getData());
}

template <class T, class I, class Layout>
T MatrixT<T, I, Layout>::dot(const MatrixT& x, const MatrixT& y) {
  MIVO_CHECK_AT(sameDevice(x, y), "Matrix", 306) << "dot: x and y must be on the same device";
  MIVO_CHECK_AT(sameSize(x, y), "Matrix", 307) << "dot: x and y must have the same size";
  return BlasOps<T, I>::dot(x.getDevice(), x.getSize(), x.getData(), y.getData());
}

template <class T, class I, class Layout>
MatrixT<T, I, Layout>& MatrixT<T, I, Layout>::operator+=(const MatrixT& other) {
  axpy(T(1), other, *this);
  return *this;
}

template <class T, class I, class Layout>
std::string MatrixT<T, I, Layout>::getString() const {
  std::ostringstream text;
  text << '[';
  for (I k = 0; k < getSize(); ++k) text << (k > 0 ? ", " : "") << getData()[k];
  text << ']';
  return text.str();
}

MIVO_INSTANCE_VALUES(MatrixT, int, MatrixLayoutRowMajor)
MIVO_INSTANCE_VALUES(MatrixT, long, MatrixLayoutRowMajor)
#define MIVO_SPLIT_INSTANCE(T, I, G, L)                                                        \
  template void MatrixT<T, I, MatrixLayoutRowMajor>::splitRows(                                \
      const PartitionerT<G, L>&, std::vector<MatrixT<T, I, MatrixLayoutRowMajor>>&) const;     \
  template MatrixT<T, I, MatrixLayoutRowMajor> MatrixT<T, I, MatrixLayoutRowMajor>::mergeRows( \
      const PartitionerT<G, L>&, const std::vector<MatrixT<T, I, MatrixLayoutRowMajor>>&);
MIVO_INSTANTIATE_VALUES_WITH(MIVO_SPLIT_INSTANCE, int, int, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_SPLIT_INSTANCE, int, long, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_SPLIT_INSTANCE, long, long, long)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_SPLIT_INSTANCE, long, long, int)
#undef MIVO_SPLIT_INSTANCE

}  // namespace mivo
