// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/MatrixLayout.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class I, class Layout, class Space>
class MatOpsImpl;

/// Kernels on small dense matrices in either layout, with leading dimension `ld`.
///
/// Every member takes the device first; arrays lie in its memory and belong to the caller. Nothing
/// is checked. T is int, long, float, double, `Complex<float>` or `Complex<double>`, I is int or
/// long.
template <class T, class I, class Layout>
class MIVO_API MatOps {
 public:
  /// Row r of `out` becomes row indices[r] of `a`; n rows of `cols` elements
  static void select_rows(const Device& device, I n, I cols, const int* indices, const T* a, I ld_a,
                          T* out, I ld_out);
  /// Row indices[r] of `out` becomes row r of `a`
  static void unselect_rows(const Device& device, I n, I cols, const int* indices, const T* a,
                            I ld_a, T* out, I ld_out);
  /// *value = a_ij; `value` is one element of device memory
  static void get_element_value(const Device& device, I i, I j, const T* a, I ld, T* value);
  /// a_ij = value
  static void set_element_value(const Device& device, I i, I j, T* a, I ld, T value);

 private:
  template <class Space>
  using Worker = MatOpsImpl<T, I, Layout, Space>;
};

#define MIVO_EXTERN(T)                                         \
  extern template class MatOps<T, int, MatrixLayoutRowMajor>;  \
  extern template class MatOps<T, int, MatrixLayoutColMajor>;  \
  extern template class MatOps<T, long, MatrixLayoutRowMajor>; \
  extern template class MatOps<T, long, MatrixLayoutColMajor>;
MIVO_FOR_EACH_VALUE(MIVO_EXTERN)
#undef MIVO_EXTERN

}  // namespace mivo
