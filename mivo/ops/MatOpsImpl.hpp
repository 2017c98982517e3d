// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/ops/dense_factors.hpp"
#include "mivo/ops/matrix_offset.hpp"
#include "mivo/ops/norms.hpp"
#include "mivo/spm/parallel.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// Bodies of `MatOps`, written once for all execution spaces: the same members with a space in
/// place of the device.
template <class T, class I, class Layout, class Space>
class MatOpsImpl {
 public:
  using R = RealType<T>;
  using Policy = spm::RangePolicy<Space>;
  using Dense = dense::View<T, I, Layout>;
  using Factors = dense::View<const T, I, Layout>;
  using Column = dense::View<T, I, MatrixLayoutColMajor>;

  static void aAxpby(Space& space, I rows, I cols, T alpha, const T* a, I ld, const T* x, T beta,
                     T* y);
  static void transpose(Space& space, I rows, I cols, const T* a, I ld_a, T* out, I ld_out);
  static void matmat(Space& space, I m, I n, I k, const T* a, I ld_a, const T* b, I ld_b, T* c,
                     I ld_c);
  static void xgetrf(Space& space, I m, I n, T* a, I ld, I* ipiv, I* info);
  static void xgetrf_det(Space& space, I n, const T* a, I ld, const I* ipiv, T* det);
  static void xgetrs(Space& space, I n, I nrhs, const T* a, I ld, const I* ipiv, T* b, I ld_b,
                     const I* info);
  static void xgetri(Space& space, I n, T* a, I ld, const I* ipiv, const I* info);
  static void xgesv(Space& space, I n, I nrhs, T* a, I ld, I* ipiv, T* b, I ld_b, I* info);
  static void xpotrf(Space& space, I n, T* a, I ld, I* info);
  static void xpotrs(Space& space, I n, I nrhs, const T* a, I ld, T* b, I ld_b, I* info);
  static void xsytrf(Space& space, I n, T* a, I ld, I* ipiv, I* info);
  static void xsytf2(Space& space, I n, T* a, I ld, I* ipiv, I* info);
  static void xsytrs(Space& space, I n, I nrhs, const T* a, I ld, const I* ipiv, T* b, I ld_b,
                     I* info);
  static void mat_lu_decomp(Space& space, int step, I n, int* status, T* a, I ld, T* b);
  static void spd_mat_cholesky_decomp(Space& space, int step, I n, int* status, T* a, I ld, T* b);
  static void sym_mat_lu_decomp(Space& space, int step, I n, int* status, T* a, I ld, T* b);
  static void mat_gauss_elim(Space& space, I n, T* a, I ld, T* b, int* status);
  static void mat_row_norm(Space& space, I rows, I cols, const T* a, I ld, R p, R* norms);
  static void get_diag(Space& space, I rows, I cols, const T* a, I ld, T* diag);
  static void set_diag(Space& space, I rows, I cols, T* a, I ld, const T* diag);
  static void select_rows(Space& space, I n, I cols, const int* indices, const T* a, I ld_a, T* out,
                          I ld_out);
  static void unselect_rows(Space& space, I n, I cols, const int* indices, const T* a, I ld_a,
                            T* out, I ld_out);
  static void get_element_value(Space& space, I i, I j, const T* a, I ld, T* value);
  static void set_element_value(Space& space, I i, I j, T* a, I ld, T value);

  /// `spd_mat_cholesky_decomp` and `sym_mat_lu_decomp`
  static void ldlDecomp(Space& space, int step, I n, int* status, T* a, I ld, T* b, bool hermitian);
};

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::aAxpby(Space& space, I rows, I cols, T alpha, const T* a,
                                             I ld, const T* x, T beta, T* y) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    T sum = beta * y[i];
    for (I j = 0; j < cols; ++j) sum += a[matrixOffset<Layout>(i, j, ld)] * alpha * x[j];
    y[i] = sum;
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::transpose(Space& space, I rows, I cols, const T* a, I ld_a,
                                                T* out, I ld_out) {
  spm::parallel_for(Policy(space, 0, static_cast<std::int64_t>(rows) * cols),
                    [=] MIVO_FUNCTION(std::int64_t k) {
                      const I i = static_cast<I>(k / cols);
                      const I j = static_cast<I>(k % cols);
                      out[matrixOffset<Layout>(j, i, ld_out)] = a[matrixOffset<Layout>(i, j, ld_a)];
                    });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::matmat(Space& space, I m, I n, I k, const T* a, I ld_a,
                                             const T* b, I ld_b, T* c, I ld_c) {
  spm::parallel_for(
      Policy(space, 0, static_cast<std::int64_t>(m) * n), [=] MIVO_FUNCTION(std::int64_t element) {
        const I i = static_cast<I>(element / n);
        const I j = static_cast<I>(element % n);
        T sum = T(0);
        for (I l = 0; l < k; ++l) {
          sum += a[matrixOffset<Layout>(i, l, ld_a)] * b[matrixOffset<Layout>(l, j, ld_b)];
        }
        c[matrixOffset<Layout>(i, j, ld_c)] = sum;
      });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xgetrf(Space& space, I m, I n, T* a, I ld, I* ipiv, I* info) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    *info = n < 1 ? I(-1) : dense::luFactor(Dense{a, ld}, m, n, ipiv);
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xgetrf_det(Space& space, I n, const T* a, I ld, const I* ipiv,
                                                 T* det) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    T product = T(1);
    for (I i = 0; i < n; ++i) {
      product *= a[matrixOffset<Layout>(i, i, ld)];
      if (ipiv != nullptr && ipiv[i] != i) product = -product;
    }
    *det = product;
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xgetrs(Space& space, I n, I nrhs, const T* a, I ld,
                                             const I* ipiv, T* b, I ld_b, const I* info) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    if (*info == -1) dense::luSolveAll(Factors{a, ld}, n, nrhs, ipiv, Dense{b, ld_b});
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xgetri(Space& space, I n, T* a, I ld, const I* ipiv,
                                             const I* info) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    if (*info == -1) dense::luInverse(Dense{a, ld}, n, ipiv);
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xgesv(Space& space, I n, I nrhs, T* a, I ld, I* ipiv, T* b,
                                            I ld_b, I* info) {
  xgetrf(space, n, n, a, ld, ipiv, info);
  xgetrs(space, n, nrhs, a, ld, ipiv, b, ld_b, info);
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xpotrf(Space&, I, T*, I, I*) {}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xpotrs(Space&, I, I, const T*, I, T*, I, I*) {}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xsytrf(Space&, I, T*, I, I*, I*) {}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xsytf2(Space&, I, T*, I, I*, I*) {}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::xsytrs(Space&, I, I, const T*, I, const I*, T*, I, I*) {}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::mat_lu_decomp(Space& space, int step, I n, int* status, T* a,
                                                    I ld, T* b) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    if (step == 1) {
      *status = dense::luFactor(Dense{a, ld}, n, n, static_cast<I*>(nullptr)) == -1 ? 0 : 1;
    } else if (step == 2) {
      dense::luSolve(Dense{a, ld}, n, Column{b, n}, I(0));
    }
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::spd_mat_cholesky_decomp(Space& space, int step, I n,
                                                              int* status, T* a, I ld, T* b) {
  ldlDecomp(space, step, n, status, a, ld, b, true);
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::sym_mat_lu_decomp(Space& space, int step, I n, int* status,
                                                        T* a, I ld, T* b) {
  ldlDecomp(space, step, n, status, a, ld, b, false);
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::mat_gauss_elim(Space& space, I n, T* a, I ld, T* b,
                                                     int* status) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    *status = dense::gaussElim(Dense{a, ld}, n, b);
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::mat_row_norm(Space& space, I rows, I cols, const T* a, I ld,
                                                   R p, R* norms) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    R sum = R(0);
    for (I j = 0; j < cols; ++j) sum += powReal(abs(a[matrixOffset<Layout>(i, j, ld)]), p);
    norms[i] = rootOfOrder(sum, p);
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::get_diag(Space& space, I rows, I cols, const T* a, I ld,
                                               T* diag) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    diag[i] = i < cols ? a[matrixOffset<Layout>(i, i, ld)] : T(0);
  });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::set_diag(Space& space, I rows, I cols, T* a, I ld,
                                               const T* diag) {
  spm::parallel_for(Policy(space, 0, rows < cols ? rows : cols),
                    [=] MIVO_FUNCTION(I i) { a[matrixOffset<Layout>(i, i, ld)] = diag[i]; });
}

template <class T, class I, class Layout, class Space>
void MatOpsImpl<T, I, Layout, Space>::ldlDecomp(Space& space, int step, I n, int* status, T* a,
                                                I ld, T* b, bool hermitian) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    if (step == 1) {
      *status = dense::ldlFactor(Dense{a, ld}, n, hermitian);
    } else if (step == 2) {
      dense::ldlSolve(Dense{a, ld}, n, b, hermitian);
    }
  });
}

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

MIVO_CUDA_VALUES(MatOpsImpl, int, MatrixLayoutRowMajor)
MIVO_CUDA_VALUES(MatOpsImpl, int, MatrixLayoutColMajor)
MIVO_CUDA_VALUES(MatOpsImpl, long, MatrixLayoutRowMajor)
MIVO_CUDA_VALUES(MatOpsImpl, long, MatrixLayoutColMajor)

}  // namespace mivo
