// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <type_traits>

#include "mivo/ops/MatrixLayout.hpp"
#include "mivo/spm/parallel.hpp"

namespace mivo {

/// Position of element (i, j) of a matrix with leading dimension `ld`. In 64 bits, since rows times
/// columns may pass the range of an int.
template <class Layout, class I>
MIVO_FUNCTION std::ptrdiff_t matrixOffset(I i, I j, I ld) {
  if constexpr (std::is_same_v<Layout, MatrixLayoutRowMajor>) {
    return static_cast<std::ptrdiff_t>(i) * ld + j;
  } else {
    return static_cast<std::ptrdiff_t>(j) * ld + i;
  }
}

/// Bodies of `MatOps`, written once for all execution spaces.
template <class T, class I, class Layout, class Space>
class MatOpsImpl {
 public:
  using Policy = spm::RangePolicy<Space>;

  static void select_rows(Space& space, I n, I cols, const int* indices, const T* a, I ld_a, T* out,
                          I ld_out);
  static void unselect_rows(Space& space, I n, I cols, const int* indices, const T* a, I ld_a,
                            T* out, I ld_out);
  static void get_element_value(Space& space, I i, I j, const T* a, I ld, T* value);
  static void set_element_value(Space& space, I i, I j, T* a, I ld, T value);
};

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::select_rows(Space& space, I n, I cols, const int* indices,
                                                  const T* a, I ld_a, T* out, I ld_out) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I r) {
    const I from = indices[r];
    for (I j = 0; j < cols; ++j) {
      out[matrixOffset<Layout>(r, j, ld_out)] = a[matrixOffset<Layout>(from, j, ld_a)];
    }
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::unselect_rows(Space& space, I n, I cols, const int* indices,
                                                    const T* a, I ld_a, T* out, I ld_out) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I r) {
    const I to = indices[r];
    for (I j = 0; j < cols; ++j) {
      out[matrixOffset<Layout>(to, j, ld_out)] = a[matrixOffset<Layout>(r, j, ld_a)];
    }
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::get_element_value(Space& space, I i, I j, const T* a, I ld,
                                                        T* value) {
  spm::parallel_for(Policy(space, 0, 1),
                    [=] MIVO_FUNCTION(I) { *value = a[matrixOffset<Layout>(i, j, ld)]; });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::set_element_value(Space& space, I i, I j, T* a, I ld,
                                                        T value) {
  spm::parallel_for(Policy(space, 0, 1),
                    [=] MIVO_FUNCTION(I) { a[matrixOffset<Layout>(i, j, ld)] = value; });
}

}  // namespace mivo
