// SPDX-License-Identifier: Apache-2.0
#pragma once

// Each operation of the kernel families with the arguments that the documents give. The first
// argument is a device for a dispatcher (`BlasOps`) and an execution space for a worker
// (`BlasOpsImpl`).

#include <mivo/mivo.hpp>

template <class T, class I, class Ops, class Where>
bool vectorKernels(Where&& d) {
  using namespace mivo;
  using R = RealType<T>;
  T x[2] = {T(1), T(2)}, y[2] = {}, z[2] = {}, m[2] = {}, min, max, sum;
  R v[2] = {}, vmax[2] = {};
  I where[2], count[1];
  Complex<T> nested[2];
  const I n = 2;
  Ops::fill(d, n, T(1), x), Ops::scal(d, n, T(2), x), Ops::copy(d, n, x, y),
      Ops::axpy(d, n, T(1), x, y);
  Ops::axpby(d, n, T(1), x, T(0), y), Ops::axpbypz(d, n, T(1), x, T(1), y, z);
  Ops::axypbz(d, n, T(1), x, y, T(1), z), Ops::axpbypcz(d, n, T(1), x, T(1), y, T(1), z);
  Ops::reciprocal(d, n, T(1), z), Ops::pow(d, n, T(1), z);
  Ops::get_nonzero_indices(d, n, x, where, count);
  Ops::get_real(d, n, x, v), Ops::get_imag(d, n, x, vmax),
      Ops::create_complex(d, n, x, nullptr, nested);
  const T dot = Ops::dot(d, n, x, y), dotu = Ops::dotu(d, n, x, y);
  const R most = Ops::abs_max(d, n, x), all = Ops::abs_sum(d, n, x, R(1));
  Ops::min_max_sum(d, n, x, &min, &max, &sum);
  Ops::adamw_step(d, n, x, y, m, v, vmax, T(1), R(0), R(0), R(1), T(0), I(0), I(1));
  return dot == T(8) && dotu == dot && most == R(2) && all == R(4) && sum == T(4) && count[0] == 2;
}

template <class To, class From, class I, class Ops, class Where>
bool mixedKernels(Where&& d) {
  const From x[1] = {From(2)};
  To y[1];
  Ops::copy(d, I(1), x, y);
  return y[0] == To(2);
}

template <class T, class I, class Ops, class Where>
bool denseKernels(Where&& d) {
  using R = mivo::RealType<T>;
  T a[1] = {T(1)}, b[1] = {T(3)}, c[1] = {}, det[1], at[1];
  I ipiv[1], info[1];
  R norms[1];
  int status[1], rows[1] = {0};
  const I n = 1, ld = 1;
  Ops::aAxpby(d, n, n, T(1), a, ld, b, T(0), c), Ops::transpose(d, n, n, a, ld, c, ld);
  Ops::matmat(d, n, n, n, a, ld, b, ld, c, ld), Ops::xgetrf(d, n, n, c, ld, ipiv, info);
  Ops::xgetrf_det(d, n, c, ld, ipiv, det), Ops::xgetrs(d, n, n, c, ld, ipiv, b, ld, info);
  Ops::xgesv(d, n, n, a, ld, ipiv, b, ld, info), Ops::xgetri(d, n, a, ld, ipiv, info);
  Ops::xpotrf(d, n, a, ld, info), Ops::xpotrs(d, n, n, a, ld, b, ld, info);
  Ops::xsytrf(d, n, a, ld, ipiv, info), Ops::xsytf2(d, n, a, ld, ipiv, info);
  Ops::xsytrs(d, n, n, a, ld, ipiv, b, ld, info), Ops::mat_lu_decomp(d, 1, n, status, a, ld, b);
  Ops::spd_mat_cholesky_decomp(d, 1, n, status, a, ld, b);
  Ops::sym_mat_lu_decomp(d, 2, n, status, a, ld, b), Ops::mat_gauss_elim(d, n, a, ld, b, status);
  Ops::mat_row_norm(d, n, n, a, ld, R(1), norms), Ops::select_rows(d, n, n, rows, a, ld, at, ld);
  Ops::unselect_rows(d, n, n, rows, at, ld, a, ld), Ops::get_diag(d, n, n, a, ld, at);
  Ops::set_diag(d, n, n, a, ld, at), Ops::get_element_value(d, I(0), I(0), a, ld, at);
  Ops::set_element_value(d, I(0), I(0), a, ld, T(5));
  return a[0] == T(5) && b[0] == T(1) && det[0] == T(3) && norms[0] == R(1);
}

/// On A = (2), for all but the kernels that take tables or scratch.
template <class T, class I, class Ops, class Where>
bool sparseKernels(Where&& d) {
  using namespace mivo;
  using R = RealType<T>;
  const I n = 1;
  I ptr[2] = {0, 1}, col[1] = {0}, order[2] = {0, 1}, outPtr[2], outCol[2], marker[1], counts[1];
  T val[1] = {T(2)}, x[1] = {T(1)}, b[1] = {T(2)}, y[1] = {}, diag[1], outVal[2], sums[1], dense[1];
  int found[1];
  R norms[1];
  const COT_CSRRawMat<T, I> A{n, n, n, ptr, ptr + 1, col, val};
  I scratchCol[2];
  T scratchVal[2];
  const COT_CSRRawMat<T, I> scratch{n, n, I(2), outPtr, outPtr + 1, scratchCol, scratchVal};
  const COT_CSRRawMat<T, I> counting{n, n, I(0), outPtr, outPtr + 1, nullptr, nullptr};
  COT_CSRRawMat<T, I> C{n, n, n, outPtr, outPtr + 1, outCol, outVal};
  const COT_MergeCSRRawMat<T, I> M{n, n, n, ptr, ptr + 1, col, val, I(0), I(0)}, *const merge = &M;
  const COT_MergeCSRRawMat<T, I> merged{n, n, n, outPtr, outPtr + 1, outCol, outVal, I(0), I(0)};
  const COT_SpMVCSRRawMat<T, I> P{n, n, n, ptr, ptr + 1, col, val, I(0), I(0), 0, x, y},
      *const blocks = &P;
  HashTableSlot<I, I> slots[2];
  slots[0].key = slots[0].value = I(0), slots[0].state = 0;

  Ops::aAxpby(d, T(1), n, n, ptr, ptr + 1, col, val, x, T(0), y);
  Ops::aAxpby_multi(d, T(1), n, n, ptr, col, val, n, n, x, T(0), n, y);
  bool ok = y[0] == T(2);
  Ops::jacobi(d, n, n, ptr, col, val, x, b, y, T(1));
  Ops::jacobi_diagLp(d, n, n, ptr, col, val, x, b, y, T(1), T(2), order);
  Ops::richardson(d, n, n, ptr, col, val, x, b, y, T(1));
  Ops::sor(d, n, n, ptr, col, val, b, y, T(1), 1, order);
  Ops::csr_diag(d, n, n, ptr, col, val, diag, I(0), I(0));
  Ops::par_sor(d, n, 0, n, blocks, b, diag, y, T(1), 1, order);
  ok = ok && y[0] == T(1) && diag[0] == T(2);
  Ops::csr2dense(d, n, n, ptr, col, val, dense), Ops::csr_sort_rows(d, n, n, ptr, col, val);
  Ops::csr_transpose(d, n, n, ptr, col, val, outPtr, outCol, outVal);
  Ops::csr_matmul(d, n, n, n, ptr, col, val, ptr, col, val, outPtr, outCol, outVal, marker);
  for (const COT_CSRRawMat<T, I>& out : {counting, C}) {
    Ops::csr_matadd(d, T(1), A, T(1), A, scratch, out);
    Ops::csr_matadd_hash(d, T(1), A, T(1), A, scratch, out, slots);
    Ops::csr_matadd_vec(d, n, n, n, &A, out, marker);
    Ops::csr_sparsify(d, A, T(0), nullptr, out),
        Ops::get_selected_rows(d, A, n, order, order, out, 1);
    Ops::get_selected_cols(d, A, n, order, out, I(0));
    Ops::get_selected_cols_v2(d, A, ptr, ptr + 1, out, 0);
    Ops::get_selected_cols_v3(d, A, I(0), n, out, I(0));
    Ops::csr_merge_rows(d, n, merge, out), Ops::csr_merge_cols(d, n, merge, out);
  }
  Ops::csr_split_cols(d, CSRMatStep(1), A, n, order, &C, 1);
  Ops::csr_split_cols(d, CSRMatStep(0), A, n, order, &C, 1);
  Ops::csr_axpby_diag(d, T(1), x, T(1), nullptr, M, merged), Ops::csr_append_rows(d, C, I(0), n, A);
  ok = ok && outPtr[1] == 1 && outVal[0] == T(2) && dense[0] == T(2);
  Ops::get_row_element_count(d, A, n, counts), Ops::get_col_element_count(d, A, n, counts);
  Ops::par_csr_row_meta(d, n, n, blocks, counts, sums, 1);
  Ops::par_csr_row_norm_lp(d, n, n, blocks, T(1), norms), Ops::par_csr_diag(d, n, n, blocks, diag);
  Ops::par_csr_row_norm_topk(d, n, n, blocks, n, C);
  ok = ok && counts[0] == 1 && sums[0] == T(2) && norms[0] == R(2);
  Ops::csr_matmul_aDA(d, T(1), x, M), Ops::csr_matmul_aAD(d, T(2), P);
  Ops::get_element_value(d, n, n, ptr, col, val, I(0), I(0), y, found);
  Ops::set_element_value(d, n, n, ptr, col, val, I(0), I(0), T(1), found);
  return ok && found[0] == 1 && y[0] == T(4) && val[0] == T(1);
}
