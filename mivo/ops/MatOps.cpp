// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/MatOps.hpp"

#include "mivo/ops/MatOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

#ifdef MIVO_WITH_CUDA
#define MIVO_EXTERN(T)                                                        \
  extern template class MatOpsImpl<T, int, MatrixLayoutRowMajor, spm::Cuda>;  \
  extern template class MatOpsImpl<T, int, MatrixLayoutColMajor, spm::Cuda>;  \
  extern template class MatOpsImpl<T, long, MatrixLayoutRowMajor, spm::Cuda>; \
  extern template class MatOpsImpl<T, long, MatrixLayoutColMajor, spm::Cuda>;
MIVO_INSTANTIATE_VALUES(MIVO_EXTERN)
#undef MIVO_EXTERN
#endif

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::select_rows(const Device& device, I n, I cols, const int* indices,
                                       const T* a, I ld_a, T* out, I ld_out) {
  MIVO_DISPATCH(select_rows, n, cols, indices, a, ld_a, out, ld_out);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::unselect_rows(const Device& device, I n, I cols, const int* indices,
                                         const T* a, I ld_a, T* out, I ld_out) {
  MIVO_DISPATCH(unselect_rows, n, cols, indices, a, ld_a, out, ld_out);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::get_element_value(const Device& device, I i, I j, const T* a, I ld,
                                             T* value) {
  MIVO_DISPATCH(get_element_value, i, j, a, ld, value);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::set_element_value(const Device& device, I i, I j, T* a, I ld, T value) {
  MIVO_DISPATCH(set_element_value, i, j, a, ld, value);
}

#define MIVO_INSTANCE(T)                                \
  template class MatOps<T, int, MatrixLayoutRowMajor>;  \
  template class MatOps<T, int, MatrixLayoutColMajor>;  \
  template class MatOps<T, long, MatrixLayoutRowMajor>; \
  template class MatOps<T, long, MatrixLayoutColMajor>;
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
