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

/// -omega / (filtered diagonal of row i), where the diagonal has gained the weak entries; 0 for a
/// diagonal of 0.
template <class T, class L>
MIVO_FUNCTION T dampedInverse(const COT_CSRRawMat<T, L>& a, const COT_CSRRawMat<int, L>& s, L i,
                              RealType<T> omega) {
  T d(0);
  for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
    if (a.col_idx[k] == i || s.values[k] == 0) d += a.values[k];
  }
  return isZero(d) ? d : T(-omega) / d;
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
  static void csr_tentative_prolongation(Space& space, L n, const int* aggr, L* rowptr, L* col_idx,
                                         T* values);
  static void csr_tentative_filter(Space& space, L rows, L nblocks, const Block* a,
                                   const StrengthBlock* s, const Block* af);
  static void csr_tentative_smooth(Space& space, View a, StrengthView s, View t, R omega, View p,
                                   L* marker);
  /// The first pass of `csr_tentative_smooth`.
  static void smoothCount(Space& space, View a, StrengthView s, View t, View p, L* marker);
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
void SpSmoothedAggregationImpl<T, G, L, Space>::csr_tentative_prolongation(Space& space, L n,
                                                                           const int* aggr,
                                                                           L* rowptr, L* col_idx,
                                                                           T* values) {
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
        diagonal = out.values + k;
      } else if (sb.values[k] == 0) {
        dropped += ab.values[k];
        out.values[k] = T(0);
      }
    });
    if (diagonal != nullptr) *diagonal = *diagonal - dropped;
  });
}

// A row of P takes the columns of those rows of T that its diagonal and its strong entries name.
template <class T, class G, class L, class Space>
void SpSmoothedAggregationImpl<T, G, L, Space>::smoothCount(Space& space, View a, StrengthView s,
                                                            View t, View p, L* marker) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < t.cols; ++c) marker[c] = -1;
    for (L i = 0; i < a.rows; ++i) {
      L count = 0;
      for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        const L j = a.col_idx[k];
        if (j != i && s.values[k] == 0) continue;
        for (L kt = t.row_begin[j]; kt < t.row_end[j]; ++kt) {
          const L c = t.col_idx[kt];
          if (marker[c] == i) continue;
          marker[c] = i;
          ++count;
        }
      }
      p.row_begin[i + 1] = count;
    }
  });
  sparse::prefixSum(space, a.rows, p.row_begin);
}

template <class T, class G, class L, class Space>
void SpSmoothedAggregationImpl<T, G, L, Space>::csr_tentative_smooth(Space& space, View a,
                                                                     StrengthView s, View t,
                                                                     R omega, View p, L* marker) {
  if (sparse::counting(p.col_idx, p.values)) {
    smoothCount(space, a, s, t, p, marker);
    return;
  }
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < t.cols; ++c) marker[c] = -1;
    for (L i = 0; i < a.rows; ++i) {
      const T inverse = sparse::dampedInverse(a, s, i, omega);
      const L start = p.row_begin[i];
      L next = start;
      for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        const L j = a.col_idx[k];
        if (j != i && s.values[k] == 0) continue;
        const T factor = j == i ? T(R(1) - omega) : a.values[k] * inverse;
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
      }
    }
  });
}

}  // namespace mivo
