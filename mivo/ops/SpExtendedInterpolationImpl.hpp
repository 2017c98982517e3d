// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

#include "mivo/ops/level_transfer_records.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

namespace sparse {

template <class T, class L>
MIVO_FUNCTION bool isF(const ExtendedInterpolation<T, L>& m, L i) {
  return m.cf[i] < 0 && m.cf[i] != -3;
}

/// Whether an entry of row j lies on the other side of zero than the diagonal.
template <class T, class L>
MIVO_FUNCTION bool isOpposite(const ExtendedInterpolation<T, L>& m, L j, L k) {
  const RealType<T> re = realPart(m.a.values[k]);
  return realPart(m.diagonal[j]) < RealType<T>(0) ? -re < RealType<T>(0) : re < RealType<T>(0);
}

/// Lists what is asked for many times of F points: their strong C neighbours, and the entries in C
/// columns of the sign that counts.
template <class T, class L>
MIVO_FUNCTION void listCoarseEntries(const ExtendedInterpolation<T, L>& m) {
  L nc = 0, nd = 0;
  m.c_ptr[0] = m.d.row_begin[0] = 0;
  for (L i = 0; i < m.s.rows; ++i) {
    if (isF(m, i)) {
      for (L k = m.s.row_begin[i]; k < m.s.row_end[i]; ++k) {
        const L j = m.s.col_idx[k];
        m.c_col[nc] = j;
        nc += m.s.values[k] != 0 && m.cf[j] >= 0 ? 1 : 0;
      }
      for (L k = m.a.row_begin[i]; k < m.a.row_end[i]; ++k) {
        m.d.col_idx[nd] = m.a.col_idx[k];
        m.d.values[nd] = m.a.values[k];
        nd += m.cf[m.a.col_idx[k]] >= 0 && isOpposite(m, i, k) ? 1 : 0;
      }
    }
    m.c_ptr[i + 1] = nc;
    m.d.row_begin[i + 1] = nd;
  }
}

/// Visits the interpolatory set of row i: its strong C neighbours and those of its strong F
/// neighbours. `onC(point)`, `onF(point)` before the neighbours of that.
template <class T, class L, class OnC, class OnF>
MIVO_FUNCTION void visitExtendedSet(const ExtendedInterpolation<T, L>& m, L i, const OnC& onC,
                                    const OnF& onF) {
  for (L k = m.s.row_begin[i]; k < m.s.row_end[i]; ++k) {
    if (m.s.values[k] == 0) continue;
    const L j = m.s.col_idx[k];
    if (m.cf[j] >= 0) {
      onC(j);
    } else if (isF(m, j)) {
      onF(j);
      for (L q = m.c_ptr[j]; q < m.c_ptr[j + 1]; ++q) onC(m.c_col[q]);
    }
  }
}

/// Gives the share a of the strong F neighbour j of row i to those neighbours of j that are in the
/// interpolatory set, and to i itself, on whose diagonal it counts. The marker minus `begin` holds
/// the places in the row.
template <class T, class L>
MIVO_FUNCTION void distribute(const ExtendedInterpolation<T, L>& m, L i, L j, const T& a, L begin,
                              T& diagonal) {
  const L k = findColumn(m.a.row_begin[j], m.a.row_end[j], m.a.col_idx, i);
  const bool has_own = k < m.a.row_end[j] && isOpposite(m, j, k);
  T sum = has_own ? m.a.values[k] : T(0);
  // No branch on which neighbours are in the set.
  const L first = m.d.row_begin[j];
  const L end = m.d.row_begin[j + 1];
  L* const place = m.d.col_idx + m.d.row_begin[m.s.rows];
  T* const value = m.d.values + m.d.row_begin[m.s.rows];
  L n = 0;
  for (L q = first; q < end; ++q) {
    const L at = m.marker[m.d.col_idx[q]];
    place[n] = at;
    value[n] = m.d.values[q];
    n += at >= begin ? 1 : 0;
  }
  for (L q = 0; q < n; ++q) sum += value[q];
  if (isZero(sum)) {
    diagonal += a;
    return;
  }
  const T share = a / sum;
  if (has_own) diagonal += share * m.a.values[k];
  for (L q = 0; q < n; ++q) m.row.values[place[q] - begin] += share * value[q];
}

/// Makes row `row` of the interpolation in `m.row`, with the points of its set as columns, in the
/// order in which they are met; returns its length. The marker holds less than `begin` for columns,
/// or a number of another row's strong F neighbours, none of which is `strongF`.
template <class T, class L>
MIVO_FUNCTION L interpolateRow(const ExtendedInterpolation<T, L>& m, L row, L begin, L strongF) {
  L* const marker = m.marker;
  L* const col_idx = m.row.col_idx;
  T* const values = m.row.values;
  const L i = m.first + row;
  if (m.cf[i] >= 0) {
    col_idx[0] = i;
    values[0] = T(1);
    return 1;
  }
  if (m.cf[i] == -3) return 0;
  L n = 0;
  visitExtendedSet(
      m, i,
      [&](L c) {
        if (marker[c] >= begin) return;
        marker[c] = begin + n;
        col_idx[n] = c;
        values[n] = T(0);
        ++n;
      },
      [&](L f) {
        marker[f] = strongF;
        prefetchEntry(m.d.col_idx, m.d.values, m.d.row_begin[f]);
        prefetchEntry(m.a.col_idx, m.a.values, m.a.row_begin[f]);
      });

  T diagonal = m.diagonal[i];
  for (L k = m.a.row_begin[i]; k < m.a.row_end[i]; ++k) {
    const L j = m.a.col_idx[k];
    if (j == i) continue;
    if (marker[j] >= begin) {
      values[marker[j] - begin] += m.a.values[k];
    } else if (marker[j] == strongF) {
      distribute(m, i, j, m.a.values[k], begin, diagonal);
    } else if (m.cf[j] != -3 && (m.dof == nullptr || m.dof[i] == m.dof[j])) {
      diagonal += m.a.values[k];
    }
  }
  for (L k = 0; k < n; ++k) values[k] = -values[k] / diagonal;
  return n;
}

/// Sorts the pairs [left, right] from the largest modulus down: the middle element is the pivot,
/// and greater ones move before it. Parts do not depend on each other, so that the longer one
/// waits, and parts that begin at `needed` or beyond may stay as they are.
template <class T, class L>
MIVO_FUNCTION void quicksortByAbs(L* col_idx, T* values, L left, L right, L needed) {
  const auto swap = [&](L x, L y) {
    const L c = col_idx[x];
    const T v = values[x];
    col_idx[x] = col_idx[y];
    values[x] = values[y];
    col_idx[y] = c;
    values[y] = v;
  };
  L waiting[2 * 64];
  int depth = 0;
  for (;;) {
    if (left >= right || left >= needed) {
      if (depth == 0) return;
      --depth;
      left = waiting[2 * depth];
      right = waiting[2 * depth + 1];
      continue;
    }
    swap(left, left + (right - left) / 2);
    const RealType<T> pivot = abs(values[left]);
    L last = left;
    for (L k = left + 1; k <= right; ++k) {
      if (abs(values[k]) > pivot) swap(++last, k);
    }
    swap(left, last);
    const bool leftIsLonger = last - left > right - last;
    waiting[2 * depth] = leftIsLonger ? left : last + 1;
    waiting[2 * depth + 1] = leftIsLonger ? last - 1 : right;
    ++depth;
    if (leftIsLonger) {
      left = last + 1;
    } else {
      right = last - 1;
    }
  }
}

/// Scales the first n entries of a row so that they sum up to `whole`, when their sum is another
/// one and not 0.
template <class T, class L>
MIVO_FUNCTION void rescaleTo(const T& whole, const T& kept, L n, T* values) {
  if (isZero(kept) || whole == kept) return;
  const T factor = whole / kept;
  for (L k = 0; k < n; ++k) values[k] *= factor;
}

/// Drops small entries of a row of n, and all but the largest `max_elmts`; returns the length that
/// is left. Norms: 0 the largest modulus, 1 the sum of them, 2 the Euclidean one.
template <class T, class L>
MIVO_FUNCTION L truncateRow(L n, RealType<T> trunc_factor, int max_elmts, bool rescale,
                            int nrm_type, L* col_idx, T* values) {
  using R = RealType<T>;
  if (trunc_factor > R(0)) {
    R norm(0);
    T whole(0), kept(0);
    for (L k = 0; k < n; ++k) {
      const R v = abs(values[k]);
      norm = nrm_type == 0 ? (v > norm ? v : norm) : norm + (nrm_type == 1 ? v : v * v);
      whole += values[k];
    }
    if (nrm_type == 2) norm = std::sqrt(norm);
    L used = 0;
    for (L k = 0; k < n; ++k) {
      if (!(abs(values[k]) >= norm * trunc_factor)) continue;
      kept += values[k];
      col_idx[used] = col_idx[k];
      values[used] = values[k];
      ++used;
    }
    n = used;
    if (rescale) rescaleTo(whole, kept, n, values);
  }
  if (max_elmts >= 1 && n > max_elmts) {
    T whole(0), kept(0);
    quicksortByAbs(col_idx, values, L(0), n - 1, static_cast<L>(max_elmts));
    for (L k = 0; k < n; ++k) {
      whole += values[k];
      if (k < max_elmts) kept += values[k];
    }
    n = max_elmts;
    if (rescale) rescaleTo(whole, kept, n, values);
  }
  return n;
}

}  // namespace sparse

/// Bodies of the kernels of extended+i interpolation (De Sterck, Falgout, Nolting and Yang 2008)
/// and of truncation.
template <class T, class L, class Space>
class SpExtendedInterpolationImpl {
 public:
  using R = RealType<T>;
  using View = COT_CSRRawMat<T, L>;
  using Policy = spm::RangePolicy<Space>;

  static void par_boomeramg_interpolation_extended_pi(Space& space, bool counts,
                                                      ExtendedInterpolation<T, L> m);
  static void par_boomeramg_interpolation_add_rank_bias(Space& space, L n, int bias, int* coarse);
  static void boomeramg_csr_truncate(Space& space, View p, R trunc_factor, int max_elmts,
                                     bool rescale, int nrm_type, L* begin, L* end);
  static void hypre_qsort2_abs(Space& space, L* col_idx, T* values, L left, L right);
  static void extendedCount(Space& space, ExtendedInterpolation<T, L> m);
  static void extendedFill(Space& space, ExtendedInterpolation<T, L> m);
};

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::par_boomeramg_interpolation_extended_pi(
    Space& space, bool counts, ExtendedInterpolation<T, L> m) {
  counts ? extendedCount(space, m) : extendedFill(space, m);
}

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::extendedCount(Space& space,
                                                             ExtendedInterpolation<T, L> m) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < m.a.cols; ++c) m.marker[c] = -1;
    sparse::listCoarseEntries(m);
    int ncoarse = 0;
    for (L row = 0; row < m.rows; ++row) {
      const L i = m.first + row;
      m.coarse[i] = m.cf[i] >= 0 ? ncoarse++ : -1;
      if (m.p.row_begin == nullptr) continue;
      L n = m.cf[i] >= 0 ? 1 : 0;
      if (sparse::isF(m, i)) {
        sparse::visitExtendedSet(
            m, i,
            [&](L c) {
              if (m.marker[c] == row) return;
              m.marker[c] = row;
              ++n;
            },
            [](L) {});
      }
      m.p.row_begin[row + 1] = n;
    }
  });
  if (m.p.row_begin != nullptr) sparse::prefixSum(space, m.rows, m.p.row_begin);
}

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::extendedFill(Space& space,
                                                            ExtendedInterpolation<T, L> m) {
  const L last = std::numeric_limits<L>::max();
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < m.a.cols; ++c) m.marker[c] = -1;
    L begin = 0;
    L at = 0;
    m.p.row_begin[0] = 0;
    for (L row = 0; row < m.rows; ++row) {
      L n = sparse::interpolateRow(m, row, begin, -2 - row);
      begin += n;
      if (begin > last - m.a.cols) {  // the next row's marks could pass the end of the type
        for (L c = 0; c < m.a.cols; ++c) m.marker[c] = -1;
        begin = 0;
      }
      // Coarse numbers ascend like the points.
      sparse::sortRow(L(0), n, m.row.col_idx, m.row.values);
      n = sparse::truncateRow(n, m.trunc_factor, m.max_elmts, true, 0, m.row.col_idx, m.row.values);
      for (L k = 0; k < n; ++k, ++at) {
        m.p.col_idx[at] = m.coarse[m.row.col_idx[k]];
        m.p.values[at] = m.row.values[k];
      }
      m.p.row_begin[row + 1] = at;
    }
  });
}

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::par_boomeramg_interpolation_add_rank_bias(
    Space& space, L n, int bias, int* coarse) {
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(L i) {
    if (coarse[i] >= 0) coarse[i] += bias;
  });
}

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::boomeramg_csr_truncate(Space& space, View p,
                                                                      R trunc_factor, int max_elmts,
                                                                      bool rescale, int nrm_type,
                                                                      L* begin, L* end) {
  spm::parallel_for(Policy(space, 0, p.rows), [=] MIVO_FUNCTION(L i) {
    const L n =
        sparse::truncateRow(p.row_end[i] - p.row_begin[i], trunc_factor, max_elmts, rescale,
                            nrm_type, p.col_idx + p.row_begin[i], p.values + p.row_begin[i]);
    begin[i] = p.row_begin[i];
    end[i] = p.row_begin[i] + n;
  });
}

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::hypre_qsort2_abs(Space& space, L* col_idx, T* values,
                                                                L left, L right) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    sparse::quicksortByAbs(col_idx, values, left, right, right);
  });
}

}  // namespace mivo
