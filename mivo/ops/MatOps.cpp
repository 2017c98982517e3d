// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/MatOps.hpp"

#include "mivo/ops/MatOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::aAxpby(const Device& device, I rows, I cols, T alpha, const T* a, I ld,
                                  const T* x, T beta, T* y) {
  MIVO_DISPATCH(aAxpby, rows, cols, alpha, a, ld, x, beta, y);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::transpose(const Device& device, I rows, I cols, const T* a, I ld_a,
                                     T* out, I ld_out) {
  MIVO_DISPATCH(transpose, rows, cols, a, ld_a, out, ld_out);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::matmat(const Device& device, I m, I n, I k, const T* a, I ld_a,
                                  const T* b, I ld_b, T* c, I ld_c) {
  MIVO_DISPATCH(matmat, m, n, k, a, ld_a, b, ld_b, c, ld_c);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xgetrf(const Device& device, I m, I n, T* a, I ld, I* ipiv, I* info) {
  MIVO_DISPATCH(xgetrf, m, n, a, ld, ipiv, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xgetrf_det(const Device& device, I n, const T* a, I ld, const I* ipiv,
                                      T* det) {
  MIVO_DISPATCH(xgetrf_det, n, a, ld, ipiv, det);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xgetrs(const Device& device, I n, I nrhs, const T* a, I ld,
                                  const I* ipiv, T* b, I ld_b, const I* info) {
  MIVO_DISPATCH(xgetrs, n, nrhs, a, ld, ipiv, b, ld_b, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xgetri(const Device& device, I n, T* a, I ld, const I* ipiv,
                                  const I* info) {
  MIVO_DISPATCH(xgetri, n, a, ld, ipiv, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xgesv(const Device& device, I n, I nrhs, T* a, I ld, I* ipiv, T* b,
                                 I ld_b, I* info) {
  MIVO_DISPATCH(xgesv, n, nrhs, a, ld, ipiv, b, ld_b, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xpotrf(const Device& device, I n, T* a, I ld, I* info) {
  MIVO_DISPATCH(xpotrf, n, a, ld, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xpotrs(const Device& device, I n, I nrhs, const T* a, I ld, T* b, I ld_b,
                                  I* info) {
  MIVO_DISPATCH(xpotrs, n, nrhs, a, ld, b, ld_b, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xsytrf(const Device& device, I n, T* a, I ld, I* ipiv, I* info) {
  MIVO_DISPATCH(xsytrf, n, a, ld, ipiv, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xsytf2(const Device& device, I n, T* a, I ld, I* ipiv, I* info) {
  MIVO_DISPATCH(xsytf2, n, a, ld, ipiv, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::xsytrs(const Device& device, I n, I nrhs, const T* a, I ld,
                                  const I* ipiv, T* b, I ld_b, I* info) {
  MIVO_DISPATCH(xsytrs, n, nrhs, a, ld, ipiv, b, ld_b, info);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::mat_lu_decomp(const Device& device, int step, I n, int* status, T* a,
                                         I ld, T* b) {
  MIVO_DISPATCH(mat_lu_decomp, step, n, status, a, ld, b);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::spd_mat_cholesky_decomp(const Device& device, int step, I n, int* status,
                                                   T* a, I ld, T* b) {
  MIVO_DISPATCH(spd_mat_cholesky_decomp, step, n, status, a, ld, b);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::sym_mat_lu_decomp(const Device& device, int step, I n, int* status, T* a,
                                             I ld, T* b) {
  MIVO_DISPATCH(sym_mat_lu_decomp, step, n, status, a, ld, b);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::mat_gauss_elim(const Device& device, I n, T* a, I ld, T* b,
                                          int* status) {
  MIVO_DISPATCH(mat_gauss_elim, n, a, ld, b, status);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::mat_row_norm(const Device& device, I rows, I cols, const T* a, I ld, R p,
                                        R* norms) {
  MIVO_DISPATCH(mat_row_norm, rows, cols, a, ld, p, norms);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::get_diag(const Device& device, I rows, I cols, const T* a, I ld,
                                    T* diag) {
  MIVO_DISPATCH(get_diag, rows, cols, a, ld, diag);
}

template <class T, class I, class Layout>
void MatOps<T, I, Layout>::set_diag(const Device& device, I rows, I cols, T* a, I ld,
                                    const T* diag) {
  MIVO_DISPATCH(set_diag, rows, cols, a, ld, diag);
}

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

MIVO_INSTANCE_VALUES(MatOps, int, MatrixLayoutRowMajor)
MIVO_INSTANCE_VALUES(MatOps, int, MatrixLayoutColMajor)
MIVO_INSTANCE_VALUES(MatOps, long, MatrixLayoutRowMajor)
MIVO_INSTANCE_VALUES(MatOps, long, MatrixLayoutColMajor)

}  // namespace mivo
