// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

#include "mivo/ops/host/term_buffer.hpp"
#include "mivo/ops/sparse_rows.hpp"
#include "mivo/ops/triple_rows.hpp"

namespace mivo {

/// Bodies of the members of `SpBlasOps` that make or change matrices: products, sums, scalings,
/// transposes.
template <class T, class I, class Space>
class SpBlasAlgebraImpl {
 public:
  using View = COT_CSRRawMat<T, I>;
  using MergeView = COT_MergeCSRRawMat<T, I>;
  using BlockView = COT_SpMVCSRRawMat<T, I>;
  using Slot = HashTableSlot<I, I>;
  using Policy = spm::RangePolicy<Space>;

  static void csr2dense(Space& space, I rows, I cols, const I* rowptr, const I* col_idx,
                        const T* values, T* dense);
  static void csr_matmul(Space& space, I rows_a, I cols_a, I cols_b, const I* a_rowptr,
                         const I* a_col_idx, const T* a_values, const I* b_rowptr,
                         const I* b_col_idx, const T* b_values, I* c_rowptr, I* c_col_idx,
                         T* c_values, I* marker);
  static void csr_matmul_count(Space& space, I rows_a, I cols_b, const I* a_rowptr,
                               const I* a_col_idx, const I* b_rowptr, const I* b_col_idx,
                               I* c_rowptr, I* marker);
  static void csr_matmul_fill(Space& space, I rows_a, I cols_b, const I* a_rowptr,
                              const I* a_col_idx, const T* a_values, const I* b_rowptr,
                              const I* b_col_idx, const T* b_values, const I* c_rowptr,
                              I* c_col_idx, T* c_values, I* marker);
  static void csr_matmul_vec(Space& space, I rows, I cols, I count, const View* a, const View* b,
                             View c, I* used, I* marker, View scratch);
  static void csr_matmul_vec_count(Space& space, I rows, I cols, I count, const View* a,
                                   const View* b, I* c_rowptr, I* used, I* marker);
  static void csr_matmul_vec_fill(Space& space, I rows, I cols, I count, const View* a,
                                  const View* b, View c, const I* used, I* marker, View scratch);
  static void csr_matmul_triple(Space& space, TripleProductRows<T, I> m);
  static void csr_matadd(Space& space, T alpha, View a, T beta, View b, View scratch, View c);
  static void csr_matadd_hash(Space& space, T alpha, View a, T beta, View b, View scratch, View c,
                              Slot* slots);
  static void csr_matadd_vec(Space& space, I rows, I cols, I count, const View* matrices, View c,
                             I* marker);
  static void csr_matmul_aDA(Space& space, T alpha, const T* d, MergeView a);
  static void csr_matmul_aAD(Space& space, T alpha, BlockView a);
  static void csr_axpby_diag(Space& space, T alpha, const T* a, T beta, const T* b,
                             MergeView source, MergeView result);
  static void csr_transpose(Space& space, I rows, I cols, const I* rowptr, const I* col_idx,
                            const T* values, I* t_rowptr, I* t_col_idx, T* t_values);
  static void csr_sort_rows(Space& space, I rows, I cols, const I* rowptr, I* col_idx, T* values);
  static void csr_sparsify(Space& space, View a, T threshold, const T* per_row, View out);
};

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr2dense(Space& space, I rows, I cols, const I* rowptr,
                                               const I* col_idx, const T* values, T* dense) {
  const std::int64_t width = cols;
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    for (I k = rowptr[i]; k < rowptr[i + 1]; ++k) dense[i * width + col_idx[k]] = values[k];
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul(Space& space, I rows_a, I /*cols_a*/, I cols_b,
                                                const I* a_rowptr, const I* a_col_idx,
                                                const T* a_values, const I* b_rowptr,
                                                const I* b_col_idx, const T* b_values, I* c_rowptr,
                                                I* c_col_idx, T* c_values, I* marker) {
  if (sparse::counting(c_col_idx, c_values)) {
    csr_matmul_count(space, rows_a, cols_b, a_rowptr, a_col_idx, b_rowptr, b_col_idx, c_rowptr,
                     marker);
  } else {
    csr_matmul_fill(space, rows_a, cols_b, a_rowptr, a_col_idx, a_values, b_rowptr, b_col_idx,
                    b_values, c_rowptr, c_col_idx, c_values, marker);
  }
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul_count(Space& space, I rows_a, I cols_b,
                                                      const I* a_rowptr, const I* a_col_idx,
                                                      const I* b_rowptr, const I* b_col_idx,
                                                      I* c_rowptr, I* marker) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    for (I c = 0; c < cols_b; ++c) marker[c] = -1;
    for (I i = 0; i < rows_a; ++i) {
      bool any = false;
      c_rowptr[i + 1] =
          sparse::markProductRow(i, a_rowptr, a_col_idx, b_rowptr, b_col_idx, marker, any);
    }
  });
  sparse::prefixSum(space, rows_a, c_rowptr);
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul_fill(Space& space, I rows_a, I cols_b,
                                                     const I* a_rowptr, const I* a_col_idx,
                                                     const T* a_values, const I* b_rowptr,
                                                     const I* b_col_idx, const T* b_values,
                                                     const I* c_rowptr, I* c_col_idx, T* c_values,
                                                     I* marker) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    for (I c = 0; c < cols_b; ++c) marker[c] = -1;
    for (I i = 0; i < rows_a; ++i) {
      const I start = c_rowptr[i];
      if (start == c_rowptr[i + 1]) continue;  // B may be a block with few rows that have entries
      sparse::addProductRow(i, a_rowptr, a_col_idx, a_values, b_rowptr, b_col_idx, b_values, start,
                            start, c_col_idx, c_values, marker);
    }
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul_vec(Space& space, I rows, I cols, I count,
                                                    const View* a, const View* b, View c, I* used,
                                                    I* marker, View scratch) {
  if (sparse::counting(c.col_idx, c.values)) {
    csr_matmul_vec_count(space, rows, cols, count, a, b, c.row_begin, used, marker);
  } else {
    csr_matmul_vec_fill(space, rows, cols, count, a, b, c, used, marker, scratch);
  }
}

// One task, as the product of two matrices is.
template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul_vec_count(Space& space, I rows, I cols, I count,
                                                          const View* a, const View* b, I* c_rowptr,
                                                          I* used, I* marker) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    for (I c = 0; c < cols; ++c) marker[c] = -1;
    for (I t = 0; t < count; ++t) used[t] = 0;
    for (I i = 0; i < rows; ++i) {
      I n = 0;
      for (I t = 0; t < count; ++t) {
        bool any = false;
        n += sparse::markProductRow(i, a[t].row_begin, a[t].col_idx, b[t].row_begin, b[t].col_idx,
                                    marker, any);
        if (any) used[t] = 1;
      }
      c_rowptr[i + 1] = n;
    }
  });
  sparse::prefixSum(space, rows, c_rowptr);
}

// The first term of a row goes straight into C. The row of each further one is summed apart, in
// scratch, and added as a whole, since sums keep the order of the terms.
template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul_vec_fill(Space& space, I rows, I cols, I count,
                                                         const View* a, const View* b, View c,
                                                         const I* used, I* marker, View scratch) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    I* const place = scratch.row_begin;
    for (I j = 0; j < cols; ++j) marker[j] = place[j] = -1;
    I terms = 0;
    for (I t = 0; t < count; ++t) terms += used[t];
    for (I i = 0; i < rows; ++i) {
      const I start = c.row_begin[i];
      if (start == c.row_end[i]) continue;
      I next = start;
      for (I t = 0; t < count; ++t) {
        const View& at = a[t];
        const View& bt = b[t];
        if (at.row_begin[i] == at.row_end[i]) continue;
        const bool first = next == start;
        const I end = sparse::addProductRow(
            i, at.row_begin, at.col_idx, at.values, bt.row_begin, bt.col_idx, bt.values,
            first ? start : I(0), first ? start : I(0), first ? c.col_idx : scratch.col_idx,
            first ? c.values : scratch.values, first ? marker : place);
        if (first) {
          next = end;
          continue;
        }
        for (I k = 0; k < end; ++k) {
          const I j = scratch.col_idx[k];
          place[j] = -1;
          if (marker[j] >= start) {
            c.values[marker[j]] += scratch.values[k];
          } else {
            marker[j] = next;
            c.col_idx[next] = j;
            c.values[next] = scratch.values[k];
            ++next;
          }
        }
      }
      if (terms > 1) sparse::sortRow(start, next, c.col_idx, c.values);
    }
  });
}

// A row of R A stays in scratch until it has been multiplied by P.
template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul_triple(Space& space, TripleProductRows<T, I> m) {
  using Terms =
      std::conditional_t<sparse::kFastForms<Space>, sparse::TermBuffer<T, I>, sparse::NoTerms>;
  constexpr I kAhead = 40;  // entries of R
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    const MergeView own = m.nblocks > 0 ? m.blocks[0] : MergeView();
    const View& r = m.r;
    const View& p = m.p;
    Terms terms;
    I i = *m.reached;
    if (i == 0 && r.rows > 0) {
      for (I j = 0; j < p.rows; ++j) m.marker_a[j] = -1;
      for (I j = 0; j < p.cols; ++j) m.marker_p[j] = -1;
      m.c.row_begin[0] = 0;
      if (m.rest.cols > 0) m.rest.row_begin[0] = 0;
    }
    for (; i < r.rows; ++i) {
      for (I k = r.row_begin[i]; k < r.row_end[i] && k + kAhead < r.nnz; ++k) {
        const I near = r.col_idx[k + kAhead / 2];
        sparse::prefetch(own.row_begin, r.col_idx[k + kAhead]);
        if (near < own.rows) {
          sparse::prefetchEntry(own.col_idx, own.values, own.row_begin[near]);
        }
      }
      const I na = sparse::multiplyRow(m, i);
      std::int64_t bound = 0;
      for (I k = 0; k < na; ++k) {
        const I j = m.row_a.col_idx[k];
        m.marker_a[j] = -1;
        bound += p.row_end[j] - p.row_begin[j];
        sparse::prefetchEntry(p.col_idx, p.values, p.row_begin[j]);
      }
      const I start = m.c.row_begin[i];
      if (bound > p.cols) bound = p.cols;
      if (bound > m.c_room - start) break;
      if (m.rest.cols > 0 && bound > m.rest_room - m.rest.row_begin[i]) break;
      I next = sparse::multiplyRowByP(m, na, start, terms);
      if (m.rest.cols > 0) {
        const I end = next;
        I beyond = m.rest.row_begin[i];
        next = start;
        for (I k = start; k < end; ++k) {
          const I j = m.c.col_idx[k];
          const T v = m.c.values[k];
          m.marker_p[j] = -1;  // the next row begins below some of these marks
          const bool inside = j < m.c.cols;
          const View& out = inside ? m.c : m.rest;
          I& at = inside ? next : beyond;
          out.col_idx[at] = inside ? j : j - m.c.cols;
          out.values[at] = v;
          ++at;
        }
        m.rest.row_begin[i + 1] = beyond;
      }
      m.c.row_begin[i + 1] = next;
    }
    *m.reached = i;
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matadd(Space& space, T alpha, View a, T beta, View b,
                                                View scratch, View c) {
  if (sparse::counting(c.col_idx, c.values)) {
    spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
      sparse::sortRow(a.row_begin[i], a.row_end[i], a.col_idx, a.values);
      sparse::sortRow(b.row_begin[i], b.row_end[i], b.col_idx, b.values);
      const I at = a.row_begin[i] + b.row_begin[i];
      c.row_begin[i + 1] =
          sparse::mergeRows(alpha, a, beta, b, i, scratch.col_idx + at, scratch.values + at);
    });
    sparse::prefixSum(space, a.rows, c.row_begin);
    return;
  }
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
    const I from = a.row_begin[i] + b.row_begin[i];
    const I to = c.row_begin[i];
    sparse::copyRow(c.row_begin[i + 1] - to, scratch.col_idx + from, scratch.values + from, I(0),
                    c.col_idx + to, c.values + to);
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matadd_hash(Space& space, T alpha, View a, T beta, View b,
                                                     View /*scratch*/, View c, Slot* slots) {
  if (sparse::counting(c.col_idx, c.values)) {
    spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
      Slot* table = slots + (a.row_begin[i] + b.row_begin[i]);
      const std::uint32_t n =
          static_cast<std::uint32_t>(a.row_end[i] - a.row_begin[i] + b.row_end[i] - b.row_begin[i]);
      for (std::uint32_t k = 0; k < n; ++k) table[k].state = Slot::kFree;
      I distinct = 0;
      for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        if (sparse::hashInsert(table, n, a.col_idx[k], distinct)) ++distinct;
      }
      for (I k = b.row_begin[i]; k < b.row_end[i]; ++k) {
        if (sparse::hashInsert(table, n, b.col_idx[k], distinct)) ++distinct;
      }
      c.row_begin[i + 1] = distinct;
    });
    sparse::prefixSum(space, a.rows, c.row_begin);
    return;
  }
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
    const Slot* table = slots + (a.row_begin[i] + b.row_begin[i]);
    const std::uint32_t n =
        static_cast<std::uint32_t>(a.row_end[i] - a.row_begin[i] + b.row_end[i] - b.row_begin[i]);
    for (I k = c.row_begin[i]; k < c.row_begin[i + 1]; ++k) c.values[k] = T(0);
    for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      const I at = c.row_begin[i] + sparse::hashFind(table, n, a.col_idx[k]);
      c.col_idx[at] = a.col_idx[k];
      c.values[at] += alpha * a.values[k];
    }
    for (I k = b.row_begin[i]; k < b.row_end[i]; ++k) {
      const I at = c.row_begin[i] + sparse::hashFind(table, n, b.col_idx[k]);
      c.col_idx[at] = b.col_idx[k];
      c.values[at] += beta * b.values[k];
    }
  });
}

// The marker is cleared once, not for each row: the row number in the count pass, and positions
// below the row's start in the fill pass, tell old marks from new ones. Only the caller's scratch
// shows the difference.
template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matadd_vec(Space& space, I rows, I cols, I count,
                                                    const View* matrices, View c, I* marker) {
  if (sparse::counting(c.col_idx, c.values)) {
    spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
      for (I j = 0; j < cols; ++j) marker[j] = -1;
      for (I i = 0; i < rows; ++i) {
        I n = 0;
        for (I m = 0; m < count; ++m) {
          const View& a = matrices[m];
          for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
            if (marker[a.col_idx[k]] == i) continue;
            marker[a.col_idx[k]] = i;
            ++n;
          }
        }
        c.row_begin[i + 1] = n;
      }
    });
    sparse::prefixSum(space, rows, c.row_begin);
    return;
  }
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    for (I j = 0; j < cols; ++j) marker[j] = -1;
    for (I i = 0; i < rows; ++i) {
      const I start = c.row_begin[i];
      I next = start;
      for (I m = 0; m < count; ++m) {
        const View& a = matrices[m];
        for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
          const I j = a.col_idx[k];
          if (marker[j] >= start) {
            c.values[marker[j]] += a.values[k];
          } else {
            marker[j] = next;
            c.col_idx[next] = j;
            c.values[next] = a.values[k];
            ++next;
          }
        }
      }
    }
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul_aDA(Space& space, T alpha, const T* d,
                                                    MergeView a) {
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
    for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) a.values[k] *= d[i] * alpha;
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_matmul_aAD(Space& space, T alpha, BlockView a) {
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
    for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) a.values[k] *= a.x[a.col_idx[k]] * alpha;
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_axpby_diag(Space& space, T alpha, const T* a, T beta,
                                                    const T* b, MergeView source,
                                                    MergeView result) {
  if (sparse::counting(result.col_idx, result.values)) {
    spm::parallel_for(Policy(space, 0, source.rows), [=] MIVO_FUNCTION(I i) {
      const I begin = source.row_begin[i];
      const I end = source.row_end[i];
      const I diagonal = source.first_row + i - source.first_col;
      const bool inside = diagonal >= 0 && diagonal < source.cols;
      const bool missing =
          inside && sparse::findColumn(begin, end, source.col_idx, diagonal) == end;
      result.row_begin[i + 1] = end - begin + (missing ? 1 : 0);
    });
    sparse::prefixSum(space, source.rows, result.row_begin);
    return;
  }
  spm::parallel_for(Policy(space, 0, source.rows), [=] MIVO_FUNCTION(I i) {
    const T ai = a != nullptr ? a[i] : T(0);
    const T bi = b != nullptr ? b[i] : T(1);
    const I diagonal = source.first_row + i - source.first_col;
    I at = result.row_begin[i];
    for (I k = source.row_begin[i]; k < source.row_end[i]; ++k, ++at) {
      const T v = source.values[k];
      result.col_idx[at] = source.col_idx[k];
      if (source.col_idx[k] == diagonal) {
        result.values[at] = (isZero(beta) ? T(0) : beta * bi * v) + alpha * ai;
      } else {
        result.values[at] = v;
      }
    }
    // A row that counted one entry more lacks its diagonal.
    if (at < result.row_begin[i + 1]) {
      result.col_idx[at] = i;
      result.values[at] = ai * alpha;
    }
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_transpose(Space& space, I rows, I cols, const I* rowptr,
                                                   const I* col_idx, const T* values, I* t_rowptr,
                                                   I* t_col_idx, T* t_values) {
  if (t_rowptr == nullptr) return;
  spm::parallel_for(Policy(space, 0, std::int64_t(cols) + 1),
                    [=] MIVO_FUNCTION(I j) { t_rowptr[j] = 0; });
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    for (I k = rowptr[i]; k < rowptr[i + 1]; ++k) spm::fetchAdd(t_rowptr + col_idx[k] + 1, I(1));
  });
  sparse::prefixSum(space, cols, t_rowptr);
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    for (I k = rowptr[i]; k < rowptr[i + 1]; ++k) {
      const I at = spm::fetchAdd(t_rowptr + col_idx[k], I(1));
      t_col_idx[at] = i;
      t_values[at] = values[k];
    }
  });
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) { sparse::shiftUp(cols, t_rowptr); });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_sort_rows(Space& space, I rows, I /*cols*/,
                                                   const I* rowptr, I* col_idx, T* values) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    sparse::sortRow(rowptr[i], rowptr[i + 1], col_idx, values);
  });
}

template <class T, class I, class Space>
void SpBlasAlgebraImpl<T, I, Space>::csr_sparsify(Space& space, View a, T threshold,
                                                  const T* per_row, View out) {
  const bool count = sparse::counting(out.col_idx, out.values);
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
    const auto limit = realPart(per_row != nullptr ? per_row[i] : threshold);
    I at = count ? 0 : out.row_begin[i];
    for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      if (!(abs(a.values[k]) > limit)) continue;
      if (!count) {
        out.col_idx[at] = a.col_idx[k];
        out.values[at] = a.values[k];
      }
      ++at;
    }
    if (count) out.row_begin[i + 1] = at;
  });
  if (count) sparse::prefixSum(space, a.rows, out.row_begin);
}

}  // namespace mivo
