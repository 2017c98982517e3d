// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/assembly/COOMatrixImpl.hpp"
#include "mivo/mat/text/CoordinateText.hpp"

namespace mivo {

template <class T, class R, class C>
void COOMatrixT<T, R, C>::loadFromStream(std::istream& is) {
  if (!is.good()) return;
  readCoordinates<T, R, C>(
      is, [this](R rows, C cols) { setShape(rows, cols); },
      [this](R row, C col, const T& value) { impl_->getRow(row)[col] = value; });
}

#define MIVO_INSTANCE(T)                                                 \
  template void COOMatrixT<T, int, int>::loadFromStream(std::istream&);  \
  template void COOMatrixT<T, int, long>::loadFromStream(std::istream&); \
  template void COOMatrixT<T, long, int>::loadFromStream(std::istream&); \
  template void COOMatrixT<T, long, long>::loadFromStream(std::istream&);
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
