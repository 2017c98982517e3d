// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

namespace {

/// What a lookup kernel writes on the device.
template <class T>
struct Lookup {
  T value;
  int found;
};

}  // namespace

template <class T, class I>
void CSRMatrixT<T, I>::getColElementCount(IndexVectorT& count) const {
  if (count.getSize() != getCols() || count.getDevice().type != getDevice().type) {
    count.create(getCols(), 1, getDevice());
  }
  SpBlasOps<T, I>::get_col_element_count(getDevice(), getRawMat(), getCols(), count.getData());
}

template <class T, class I>
T CSRMatrixT<T, I>::getElementValue(I row, I col, bool* found) const {
  if (found != nullptr) *found = false;
  if (getNnz() == 0 || row < 0 || row >= getRows()) return T(0);
  MatrixT<Lookup<T>, I, MatrixLayoutRowMajor> record;
  record.create(1, 1, getDevice());
  SpBlasOps<T, I>::get_element_value(getDevice(), getRows(), getCols(), getRowPtr(), getColIdx(),
                                     getValues(), row, col, &record.getData()->value,
                                     &record.getData()->found);
  const Lookup<T> result = *record.toDevice(Device()).getData();
  if (found != nullptr) *found = result.found != 0;
  return result.value;
}

template <class T, class I>
bool CSRMatrixT<T, I>::setElementValue(I row, I col, const T& value) {
  if (getNnz() == 0 || row < 0 || row >= getRows()) return false;
  IndexVector found;
  found.create(1, 1, getDevice());
  SpBlasOps<T, I>::set_element_value(getDevice(), getRows(), getCols(), getRowPtr(), getColIdx(),
                                     getValues(), row, col, value, found.getData());
  return *found.toDevice(Device()).getData() != 0;
}

template <class T, class I>
void CSRMatrixT<T, I>::check(bool sorted) const {
  const I rows = getRows();
  if (rows == 0) return;
  const I* row_ptr = getRowPtr();
  const I* col_idx = getColIdx();
  for (I i = 0; i < rows; ++i) {
    MIVO_CHECK(row_ptr[i] <= row_ptr[i + 1]);
    MIVO_CHECK(row_ptr[i] >= 0);
  }
  MIVO_CHECK(row_ptr[rows] == getNnz());
  for (I i = 0; i < rows; ++i) {
    for (I j = row_ptr[i]; j < row_ptr[i + 1]; ++j) {
      MIVO_CHECK(col_idx[j] < getCols() && col_idx[j] >= 0);
      MIVO_CHECK(!sorted || j == row_ptr[i] || col_idx[j - 1] < col_idx[j]);
    }
  }
}

MIVO_INSTANCE_VALUES(CSRMatrixT, int)
#define MIVO_INSTANCE(T)                                                    \
  template T CSRMatrixT<T, long>::getElementValue(long, long, bool*) const; \
  template bool CSRMatrixT<T, long>::setElementValue(long, long, const T&);
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
