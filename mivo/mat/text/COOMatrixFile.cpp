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

#define MIVO_INSTANCE(T, R, C) template void COOMatrixT<T, R, C>::loadFromStream(std::istream&);
MIVO_INSTANTIATE_VALUES_WITH(MIVO_INSTANCE, int, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_INSTANCE, int, long)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_INSTANCE, long, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_INSTANCE, long, long)
#undef MIVO_INSTANCE

}  // namespace mivo
