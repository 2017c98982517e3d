// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/host/long_rows.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

/// Bodies of the members of `SpBlasOps` that multiply with vectors: products, corrections, sweeps.
template <class T, class I, class Space>
class SpBlasProductsImpl {
 public:
  using R = RealType<T>;
  using BlockView = COT_SpMVCSRRawMat<T, I>;
  using Policy = spm::RangePolicy<Space>;

  /// y = alpha A x
  static void aAx(Space& space, T alpha, I rows, const I* rowptr, const I* col_idx, const T* values,
                  const T* x, T* y);
  static void aAxpby(Space& space, T alpha, I rows, I cols, const I* rowptr, const I* rowend,
                     const I* col_idx, const T* values, const T* x, T beta, T* y);
  static void aAxpby_multi(Space& space, T alpha, I rows, I cols, const I* rowptr, const I* col_idx,
                           const T* values, I nvec, I xstride, const T* x, T beta, I ystride, T* y);
  static void jacobi(Space& space, I rows, I cols, const I* rowptr, const I* col_idx,
                     const T* values, const T* x, const T* b, T* y, T omega);
  static void jacobi_diagLp(Space& space, I rows, I cols, const I* rowptr, const I* col_idx,
                            const T* values, const T* x, const T* b, T* y, T omega, T p,
                            const I* row_map);
  static void richardson(Space& space, I rows, I cols, const I* rowptr, const I* col_idx,
                         const T* values, const T* x, const T* b, T* y, T omega);
  static void sor(Space& space, I rows, I cols, const I* rowptr, const I* col_idx, const T* values,
                  const T* b, T* x, T omega, int forward, const I* order);
  static void par_sor(Space& space, I rows, int rank, I nblocks, const BlockView* blocks,
                      const T* b, const T* diag, T* x, T omega, int forward, const I* order);
};

template <class T, class I, class Space>
void SpBlasProductsImpl<T, I, Space>::aAx(Space& space, T alpha, I rows, const I* rowptr,
                                          const I* col_idx, const T* values, const T* x, T* y) {
  if constexpr (sparse::kFastForms<Space>) {
    const auto store = [=](I i, const T& s) { y[i] = alpha * s; };
    if (sparse::longRowProducts(rows, rowptr, col_idx, values, x, store)) return;
  }
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    const I begin = rowptr[i];
    sparse::prefetchEntry(col_idx, values, std::int64_t(begin) + sparse::kFetchAhead);
    y[i] = alpha * sparse::rowDot(begin, rowptr[i + 1], col_idx, values, x, T(0));
  });
}

template <class T, class I, class Space>
void SpBlasProductsImpl<T, I, Space>::aAxpby(Space& space, T alpha, I rows, I /*cols*/,
                                             const I* rowptr, const I* /*rowend*/, const I* col_idx,
                                             const T* values, const T* x, T beta, T* y) {
  if (isZero(beta)) {
    aAx(space, alpha, rows, rowptr, col_idx, values, x, y);
    return;
  }
  if constexpr (sparse::kFastForms<Space>) {
    const auto store = [=](I i, const T& s) { y[i] = alpha * s + beta * y[i]; };
    if (sparse::longRowProducts(rows, rowptr, col_idx, values, x, store)) return;
  }
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    const I begin = rowptr[i];
    sparse::prefetchEntry(col_idx, values, std::int64_t(begin) + sparse::kFetchAhead);
    const T s = sparse::rowDot(begin, rowptr[i + 1], col_idx, values, x, T(0));
    y[i] = alpha * s + beta * y[i];
  });
}

template <class T, class I, class Space>
void SpBlasProductsImpl<T, I, Space>::aAxpby_multi(Space& space, T alpha, I rows, I cols,
                                                   const I* rowptr, const I* col_idx,
                                                   const T* values, I nvec, I xstride, const T* x,
                                                   T beta, I ystride, T* y) {
  for (I k = 0; k < nvec; ++k) {
    aAxpby(space, alpha, rows, cols, rowptr, nullptr, col_idx, values, x, beta, y);
    x += xstride;
    y += ystride;
  }
}

template <class T, class I, class Space>
void SpBlasProductsImpl<T, I, Space>::jacobi(Space& space, I rows, I /*cols*/, const I* rowptr,
                                             const I* col_idx, const T* values, const T* x,
                                             const T* b, T* y, T omega) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    const I begin = rowptr[i];
    const I end = rowptr[i + 1];
    sparse::prefetchEntry(col_idx, values, std::int64_t(begin) + sparse::kFetchAhead);
    // The place of the diagonal, not its value: no branch.
    T s = T(0);
    I own = end;
    for (I k = begin; k < end; ++k) {
      const I c = col_idx[k];
      s += values[k] * x[c];
      own = c == i ? k : own;
    }
    const T d = own < end ? values[own] : T(1);
    y[i] += (b[i] - s) * omega / d;
  });
}

template <class T, class I, class Space>
void SpBlasProductsImpl<T, I, Space>::jacobi_diagLp(Space& space, I rows, I /*cols*/,
                                                    const I* rowptr, const I* col_idx,
                                                    const T* values, const T* x, const T* b, T* y,
                                                    T omega, T p, const I* row_map) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    if (row_map != nullptr && row_map[i] < 0) {
      y[i] = x[i];
      return;
    }
    const I begin = rowptr[i];
    const I end = rowptr[i + 1];
    const T s = sparse::rowDot(begin, end, col_idx, values, x, T(0));
    const T d = sparse::rowEntry(begin, end, col_idx, values, i, T(1));
    R w = R(0);
    for (I k = begin; k < end; ++k) w += absPower(values[k], p);
    y[i] += (b[i] - s) * omega * d / T(w);
  });
}

template <class T, class I, class Space>
void SpBlasProductsImpl<T, I, Space>::richardson(Space& space, I rows, I /*cols*/, const I* rowptr,
                                                 const I* col_idx, const T* values, const T* x,
                                                 const T* b, T* y, T omega) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    const I begin = rowptr[i];
    sparse::prefetchEntry(col_idx, values, std::int64_t(begin) + sparse::kFetchAhead);
    const T s = sparse::rowDot(begin, rowptr[i + 1], col_idx, values, x, T(0));
    y[i] += (b[i] - s) * omega;
  });
}

template <class T, class I, class Space>
void SpBlasProductsImpl<T, I, Space>::sor(Space& space, I rows, I /*cols*/, const I* rowptr,
                                          const I* col_idx, const T* values, const T* b, T* x,
                                          T omega, int forward, const I* order) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    const T keep = T(1) - omega;
    const std::int64_t ahead = forward != 0 ? sparse::kFetchAhead : -sparse::kFetchAhead;
    for (I step = 0; step < rows; ++step) {
      const I k = forward != 0 ? step : rows - 1 - step;
      const I i = order != nullptr ? order[k] : k;
      if (i < 0) continue;
      const I begin = rowptr[i];
      const I end = rowptr[i + 1];
      sparse::prefetchEntry(col_idx, values, begin + ahead);
      T s = T(0);
      T d = T(1);
      for (I j = begin; j < end; ++j) {
        const I c = col_idx[j];
        if (c == i) {
          d = values[j];
        } else {
          s += values[j] * x[c];
        }
      }
      x[i] = (b[i] - s) * omega / d + x[i] * keep;
    }
  });
}

template <class T, class I, class Space>
void SpBlasProductsImpl<T, I, Space>::par_sor(Space& space, I rows, int rank, I nblocks,
                                              const BlockView* blocks, const T* b, const T* diag,
                                              T* x, T omega, int forward, const I* order) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    const std::int64_t ahead = forward != 0 ? sparse::kFetchAhead : -sparse::kFetchAhead;
    for (I step = 0; step < rows; ++step) {
      const I k = forward != 0 ? step : rows - 1 - step;
      const I i = order != nullptr ? order[k] : k;
      if (i < 0) continue;
      T s = T(0);
      for (I m = 0; m < nblocks; ++m) {
        const BlockView& a = blocks[m];
        // Ghost values stay as they were fetched before the sweep.
        const T* operand = a.rank == rank ? x : a.x;
        const I begin = a.row_begin[i];
        sparse::prefetchEntry(a.col_idx, a.values, begin + ahead);
        s = sparse::rowDot(begin, a.row_end[i], a.col_idx, a.values, operand, s);
      }
      x[i] += (b[i] - s) * omega / diag[i];
    }
  });
}

}  // namespace mivo
