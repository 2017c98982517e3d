// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/block_rows.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

namespace sparse {

/// |v| > |bound| for complex numbers, v > bound for real ones.
template <class T>
MIVO_FUNCTION bool exceeds(const T& v, const T& bound) {
  if constexpr (kIsComplex<T>) {
    return abs(v) > abs(bound);
  } else {
    return v > bound;
  }
}

/// The row i of I - omega Df^-1 Af where the diagonal of Af gains the weak entries, which leave the
/// pattern.
template <class T, class L>
struct LumpedRow {
  using R = RealType<T>;
  const COT_CSRRawMat<T, L>& a;
  const COT_CSRRawMat<int, L>& s;
  R omega;
  L i = 0;
  T scale{};  ///< -omega / (filtered diagonal), 0 for a diagonal of 0

  MIVO_FUNCTION void begin(L row) {
    i = row;
    T d(0);
    for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      if (a.col_idx[k] == i || s.values[k] == 0) d += a.values[k];
    }
    scale = isZero(d) ? d : T(-omega) / d;
  }
  MIVO_FUNCTION static bool takes(L row, L col, int strong) { return col == row || strong != 0; }
  MIVO_FUNCTION T entry(L k) const {
    return a.col_idx[k] == i ? T(R(1) - omega) : a.values[k] * scale;
  }
  /// No entry for a row without a diagonal.
  static constexpr bool kAddsDiagonal = false;
  MIVO_FUNCTION static T addedDiagonal() { return T(0); }
};

/// The same where the weak entries are taken from the diagonal and stay as zeros, in the arithmetic
/// of `csr_tentative_filter`, `csr_matmul_aDA` and `csr_axpby_diag` one after the other.
template <class T, class L>
struct FilteredRow {
  using R = RealType<T>;
  const COT_CSRRawMat<T, L>& a;
  const COT_CSRRawMat<int, L>& s;
  R omega;
  L i = 0;
  L diagonal = 0;  ///< position of the diagonal entry, that of the row's end without one
  T dropped{};     ///< sum of the weak entries
  T scale{};       ///< -omega / (filtered diagonal)

  MIVO_FUNCTION void begin(L row) {
    i = row;
    diagonal = a.row_end[i];
    dropped = T(0);
    for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      if (a.col_idx[k] == i) {
        if (diagonal == a.row_end[i]) diagonal = k;
      } else if (s.values[k] == 0) {
        dropped += a.values[k];
      }
    }
    const T d = diagonal < a.row_end[i] ? a.values[diagonal] - dropped : T(0);
    scale = (isZero(d) ? T(1) : quotient(T(1), d)) * T(-omega);
  }
  MIVO_FUNCTION static bool takes(L /*row*/, L /*col*/, int /*strong*/) { return true; }
  MIVO_FUNCTION T entry(L k) const {
    if (a.col_idx[k] != i) return (s.values[k] != 0 ? a.values[k] : T(0)) * scale;
    const T v = (k == diagonal ? a.values[k] - dropped : a.values[k]) * scale;
    return T(1) * T(1) * v + T(1) * T(1);
  }
  static constexpr bool kAddsDiagonal = true;
  MIVO_FUNCTION static T addedDiagonal() { return T(1) * T(1); }
};

/// Adds `factor` times row j of T to the row of P that begins at `start` and ends at `next`.
/// Returns the new end.
template <class T, class L>
[[gnu::always_inline]] MIVO_FUNCTION inline L addTentativeRow(const COT_CSRRawMat<T, L>& t, L j,
                                                              const T& factor, L start, L next,
                                                              const COT_CSRRawMat<T, L>& p,
                                                              L* marker) {
  for (L kt = t.row_begin[j]; kt < t.row_end[j]; ++kt) {
    const L c = t.col_idx[kt];
    const T v = t.values[kt] * factor;
    if (marker[c] < start) {
      marker[c] = next;
      p.col_idx[next] = c;
      p.values[next] = v;
      ++next;
    } else {
      p.values[marker[c]] += v;
    }
  }
  return next;
}

/// Columns of row j of T that carry another mark than i; they are given it.
template <class L, class View>
[[gnu::always_inline]] MIVO_FUNCTION inline L markTentativeRow(const View& t, L j, L i, L* marker) {
  L count = 0;
  for (L kt = t.row_begin[j]; kt < t.row_end[j]; ++kt) {
    const L c = t.col_idx[kt];
    if (marker[c] == i) continue;
    marker[c] = i;
    ++count;
  }
  return count;
}

}  // namespace sparse

/// Bodies of the kernels of smoothed aggregation (Vanek, Mandel and Brezina 1996).
template <class T, class G, class L, class Space>
class SpSmoothedAggregationImpl {
 public:
  using R = RealType<T>;
  using View = COT_CSRRawMat<T, L>;
  using StrengthView = COT_CSRRawMat<int, L>;
  using Block = COT_SpMVCSRRawMat<T, L>;
  using StrengthBlock = COT_SpMVCSRRawMat<int, L>;
  using Policy = spm::RangePolicy<Space>;

  static void csr_strength(Space& space, View a, const T* d, L n, R eps2, G firstRow, G firstCol,
                           StrengthView s);
  static void csr_tentative_prolongation(Space& space, L n, L naggr, const int* aggr, L* rowptr,
                                         L* col_idx, T* values);
  static void csr_tentative_filter(Space& space, L rows, L nblocks, const Block* a,
                                   const StrengthBlock* s, const Block* af);
  static void csr_tentative_smooth(Space& space, View a, StrengthView s, View t, R omega, View p,
                                   L* marker);
  static void csr_tentative_filter_smooth(Space& space, View a, StrengthView s, View t, R omega,
                                          View p, L* marker);
  /// Both passes of P = M T, with the rows of M by Row.
  template <class Row>
  static void smoothCount(Space& space, View a, StrengthView s, View t, View p, L* marker);
  template <class Row>
  static void smoothFill(Space& space, View a, StrengthView s, View t, R omega, View p, L* marker);
};

template <class T, class G, class L, class Space>
void SpSmoothedAggregationImpl<T, G, L, Space>::csr_strength(Space& space, View a, const T* d, L n,
                                                             R eps2, G firstRow, G firstCol,
                                                             StrengthView s) {
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(L i) {
    const T scaled = d[i] * T(eps2);
    const G diagonal = firstRow + i - firstCol;
    for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      const L j = a.col_idx[k];
      const T v = a.values[k];
      const T dj = j < n ? d[j] : T(0);
      s.values[k] = j != diagonal && sparse::exceeds(v * v, dj * scaled) ? 1 : 0;
    }
  });
}

template <class T, class G, class L, class Space>
void SpSmoothedAggregationImpl<T, G, L, Space>::csr_tentative_prolongation(
    Space& space, L n, L /*naggr*/, const int* aggr, L* rowptr, L* col_idx, T* values) {
  if (sparse::counting(col_idx, values)) {
    spm::parallel_for(Policy(space, 0, n),
                      [=] MIVO_FUNCTION(L i) { rowptr[i + 1] = aggr[i] >= 0 ? 1 : 0; });
    sparse::prefixSum(space, n, rowptr);
    return;
  }
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(L i) {
    if (aggr[i] < 0) return;
    col_idx[rowptr[i]] = aggr[i];
    values[rowptr[i]] = T(1);
  });
}

template <class T, class G, class L, class Space>
void SpSmoothedAggregationImpl<T, G, L, Space>::csr_tentative_filter(Space& space, L rows,
                                                                     L nblocks, const Block* a,
                                                                     const StrengthBlock* s,
                                                                     const Block* af) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(L i) {
    T dropped(0);
    T* diagonal = nullptr;
    sparse::rsLoopAllCol(i, nblocks, a, s, [&](const Block& ab, const StrengthBlock& sb, L k) {
      const Block& out = af[&ab - a];
      out.values[k] = ab.values[k];
      if (sparse::onDiagonal(ab, i, ab.col_idx[k])) {
        if (diagonal == nullptr) diagonal = out.values + k;
      } else if (sb.values[k] == 0) {
        dropped += ab.values[k];
        out.values[k] = T(0);
      }
    });
    if (diagonal != nullptr) *diagonal = *diagonal - dropped;
  });
}

// A row of P takes the columns of those rows of T that the entries of M name.
template <class T, class G, class L, class Space>
template <class Row>
void SpSmoothedAggregationImpl<T, G, L, Space>::smoothCount(Space& space, View a, StrengthView s,
                                                            View t, View p, L* marker) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < t.cols; ++c) marker[c] = -1;
    for (L i = 0; i < a.rows; ++i) {
      L count = 0;
      bool hasDiagonal = false;
      for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        const L j = a.col_idx[k];
        hasDiagonal = hasDiagonal || j == i;
        if (Row::takes(i, j, s.values[k])) count += sparse::markTentativeRow(t, j, i, marker);
      }
      if (Row::kAddsDiagonal && !hasDiagonal) count += sparse::markTentativeRow(t, i, i, marker);
      p.row_begin[i + 1] = count;
    }
  });
  sparse::prefixSum(space, a.rows, p.row_begin);
}

template <class T, class G, class L, class Space>
template <class Row>
void SpSmoothedAggregationImpl<T, G, L, Space>::smoothFill(Space& space, View a, StrengthView s,
                                                           View t, R omega, View p, L* marker) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < t.cols; ++c) marker[c] = -1;
    Row row{a, s, omega};
    for (L i = 0; i < a.rows; ++i) {
      row.begin(i);
      const L start = p.row_begin[i];
      L next = start;
      bool hasDiagonal = false;
      for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        const L j = a.col_idx[k];
        hasDiagonal = hasDiagonal || j == i;
        if (!Row::takes(i, j, s.values[k])) continue;
        next = sparse::addTentativeRow(t, j, row.entry(k), start, next, p, marker);
      }
      if (Row::kAddsDiagonal && !hasDiagonal) {
        sparse::addTentativeRow(t, i, Row::addedDiagonal(), start, next, p, marker);
      }
    }
  });
}

template <class T, class G, class L, class Space>
void SpSmoothedAggregationImpl<T, G, L, Space>::csr_tentative_smooth(Space& space, View a,
                                                                     StrengthView s, View t,
                                                                     R omega, View p, L* marker) {
  if (sparse::counting(p.col_idx, p.values)) {
    smoothCount<sparse::LumpedRow<T, L>>(space, a, s, t, p, marker);
  } else {
    smoothFill<sparse::LumpedRow<T, L>>(space, a, s, t, omega, p, marker);
  }
}

template <class T, class G, class L, class Space>
void SpSmoothedAggregationImpl<T, G, L, Space>::csr_tentative_filter_smooth(Space& space, View a,
                                                                            StrengthView s, View t,
                                                                            R omega, View p,
                                                                            L* marker) {
  if (sparse::counting(p.col_idx, p.values)) {
    smoothCount<sparse::FilteredRow<T, L>>(space, a, s, t, p, marker);
  } else {
    smoothFill<sparse::FilteredRow<T, L>>(space, a, s, t, omega, p, marker);
  }
}

}  // namespace mivo
