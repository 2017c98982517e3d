// SPDX-License-Identifier: Apache-2.0
#include <cstddef>
#include <limits>
#include <map>

#include "mivo/comu/communication_tools_impl.hpp"
#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

template <class T, class I>
int CSRMatrixT<T, I>::getStreamSize() const {
  const std::size_t indices =
      4 + static_cast<std::size_t>(getRows()) + static_cast<std::size_t>(getNnz());
  const std::size_t bytes = indices * sizeof(I) + static_cast<std::size_t>(getNnz()) * sizeof(T);
  MIVO_CHECK(bytes <= static_cast<std::size_t>(std::numeric_limits<int>::max()))
      << "CSRMatrix: " << bytes << " bytes are too many for one message";
  return static_cast<int>(bytes);
}

template <class T, class I>
void CSRMatrixT<T, I>::packStream(comu::Stream& stream) const {
  getStreamSize();  // ends the process before a length below could overflow
  const I header[3] = {getRows(), getCols(), getNnz()};
  stream.pushBack(header, sizeof header);
  // A matrix of no rows has no row pointers: null only moves the position on.
  stream.pushBack(getRowPtr(), (getRows() + 1) * static_cast<int>(sizeof(I)));
  stream.pushBack(getColIdx(), getNnz() * static_cast<int>(sizeof(I)));
  stream.pushBack(getValues(), getNnz() * static_cast<int>(sizeof(T)));
}

template <class T, class I>
void CSRMatrixT<T, I>::unpackStream(comu::Stream& stream) {
  I header[3];
  stream.popFront(header, sizeof header);
  create(header[0], header[1], header[2], getDevice());
  stream.popFront(getRowPtr(), (getRows() + 1) * static_cast<int>(sizeof(I)));
  stream.popFront(getColIdx(), getNnz() * static_cast<int>(sizeof(I)));
  stream.popFront(getValues(), getNnz() * static_cast<int>(sizeof(T)));
}

MIVO_INSTANCE_VALUES(CSRMatrixT, int)
#define MIVO_INSTANCE(T)                                              \
  template int CSRMatrixT<T, long>::getStreamSize() const;            \
  template void CSRMatrixT<T, long>::packStream(comu::Stream&) const; \
  template void CSRMatrixT<T, long>::unpackStream(comu::Stream&);
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

#define MIVO_EXCHANGE(T)                                                      \
  MIVO_INSTANTIATE_SPARSE_SEND_RECV_STREAM(CSRMatrixT<T, int>)                \
  MIVO_INSTANTIATE_SPARSE_SEND_RECV_STREAM(std::map<int, CSRMatrixT<T, int>>) \
  MIVO_INSTANTIATE_SCATTER_GATHER_STREAM(CSRMatrixT<T, int>)
MIVO_INSTANTIATE_VALUES(MIVO_EXCHANGE)
#undef MIVO_EXCHANGE

}  // namespace mivo
