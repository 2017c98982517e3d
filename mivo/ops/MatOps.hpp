// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/MatrixLayout.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class I, class Layout, class Space>
class MatOpsImpl;

/// Kernels on small dense matrices in either layout, with leading dimension `ld`.
///
/// Every member takes the device first; arrays, `info`, `status` and `det` lie in its memory and
/// belong to the caller. Nothing is checked. A factorisation or solve is one serial task without
/// blocks, meant for orders up to some hundreds. T is int, long, float, double, `Complex<float>` or
/// `Complex<double>`, I is int or long.
template <class T, class I, class Layout>
class MIVO_API MatOps {
 public:
  using R = RealType<T>;

  /// y = alpha A x + beta y; y is read also where beta is 0
  static void aAxpby(const Device& device, I rows, I cols, T alpha, const T* a, I ld, const T* x,
                     T beta, T* y);
  /// out = A^T, `cols` by `rows`; must not overlap A
  static void transpose(const Device& device, I rows, I cols, const T* a, I ld_a, T* out, I ld_out);
  /// C = A B for A of m by k, B of k by n; C must not overlap them
  static void matmat(const Device& device, I m, I n, I k, const T* a, I ld_a, const T* b, I ld_b,
                     T* c, I ld_c);
  /// P A = L U with partial pivoting, in place; without row exchanges when `ipiv` is null. ipiv[j],
  /// of min(m, n), is the row that column j was exchanged with. *info = -1 when all columns are
  /// done, else the column of the first zero pivot, where the rest stays unfactored
  static void xgetrf(const Device& device, I m, I n, T* a, I ld, I* ipiv, I* info);
  /// *det = det(A) from the factors of `xgetrf`; `ipiv` may be null
  static void xgetrf_det(const Device& device, I n, const T* a, I ld, const I* ipiv, T* det);
  /// B = A^-1 B from the factors of `xgetrf`, B of n by nrhs; nothing unless *info is -1
  static void xgetrs(const Device& device, I n, I nrhs, const T* a, I ld, const I* ipiv, T* b,
                     I ld_b, const I* info);
  /// A = A^-1 from the factors of `xgetrf`, in place; nothing unless *info is -1
  static void xgetri(const Device& device, I n, T* a, I ld, const I* ipiv, const I* info);
  /// `xgetrf` and `xgetrs` in one
  static void xgesv(const Device& device, I n, I nrhs, T* a, I ld, I* ipiv, T* b, I ld_b, I* info);
  // Names kept for callers that expect them: they make the device current and change nothing.
  static void xpotrf(const Device& device, I n, T* a, I ld, I* info);
  static void xpotrs(const Device& device, I n, I nrhs, const T* a, I ld, T* b, I ld_b, I* info);
  static void xsytrf(const Device& device, I n, T* a, I ld, I* ipiv, I* info);
  static void xsytf2(const Device& device, I n, T* a, I ld, I* ipiv, I* info);
  static void xsytrs(const Device& device, I n, I nrhs, const T* a, I ld, const I* ipiv, T* b,
                     I ld_b, I* info);
  /// A = L U without pivoting. Step 1 factors in place, *status = 1 where a zero pivot ends it,
  /// else 0; step 2: b = A^-1 b from the factors, whatever the status. Other steps do nothing. The
  /// unused one of `status` and `b` may be null
  static void mat_lu_decomp(const Device& device, int step, I n, int* status, T* a, I ld, T* b);
  /// The same for A = L D L^H, symmetric (Hermitian) positive definite, of which the lower triangle
  /// is read and overwritten; no square root is taken
  static void spd_mat_cholesky_decomp(const Device& device, int step, I n, int* status, T* a, I ld,
                                      T* b);
  /// The same for A = L D L^T, symmetric also where T is complex
  static void sym_mat_lu_decomp(const Device& device, int step, I n, int* status, T* a, I ld, T* b);
  /// b = A^-1 b by elimination without pivoting, A overwritten. *status = 1 where a diagonal
  /// element is zero, whose row keeps the b that it has, else 0
  static void mat_gauss_elim(const Device& device, I n, T* a, I ld, T* b, int* status);
  /// norms_i = (sum_j |a_ij|^p)^(1/p)
  static void mat_row_norm(const Device& device, I rows, I cols, const T* a, I ld, R p, R* norms);
  /// diag_i = a_ii for i < rows, 0 where A has no such column
  static void get_diag(const Device& device, I rows, I cols, const T* a, I ld, T* diag);
  /// a_ii = diag_i for i < min(rows, cols)
  static void set_diag(const Device& device, I rows, I cols, T* a, I ld, const T* diag);
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

MIVO_EXTERN_VALUES(MatOps, int, MatrixLayoutRowMajor)
MIVO_EXTERN_VALUES(MatOps, int, MatrixLayoutColMajor)
MIVO_EXTERN_VALUES(MatOps, long, MatrixLayoutRowMajor)
MIVO_EXTERN_VALUES(MatOps, long, MatrixLayoutColMajor)

}  // namespace mivo
