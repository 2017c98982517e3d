// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

namespace sparse {

/// A matrix and its splitting, with the neighbourhood that the interpolation of this rank's rows
/// needs: rows and columns have the same numbers, ascending like the global ones, of which this
/// rank's own are [first, first + rows). Rows that are not needed are empty.
template <class T, class L>
struct ExtendedMatrix {
  COT_CSRRawMat<T, L> a;
  COT_CSRRawMat<int, L> s;  ///< nonzero values are strong
  L first;
  L rows;
  const int* cf;      ///< C points at least 0, -3 without strong entries, F points otherwise
  const T* diagonal;  ///< of A
  const int* dof;     ///< function of each point, null when there is one
  L* c_ptr;           ///< rows of `c_col`, one more than there are rows
  L* c_col;           ///< strong C neighbours of each F point
  /// Entries of F points, in C columns, that may take shares of others; behind them is room for one
  /// more row.
  COT_CSRRawMat<T, L> d;
  L* hints;  ///< where searches in each row of A go on, null to have each begin at the row's start

  MIVO_FUNCTION bool isF(L i) const { return cf[i] < 0 && cf[i] != -3; }
  /// Position of column i in row j of A, its end where it has none. Rows are asked for ascending
  /// columns, and mostly have them in this order.
  MIVO_FUNCTION L find(L j, L i) const {
    const L end = a.row_end[j];
    if (hints == nullptr) return findColumn(a.row_begin[j], end, a.col_idx, i);
    L k = findColumn(hints[j], end, a.col_idx, i);
    if (k == end) {
      k = findColumn(a.row_begin[j], hints[j], a.col_idx, i);
      if (k == hints[j]) return end;
    }
    hints[j] = k;
    return k;
  }
  /// Whether an entry of row j lies on the other side of zero than the diagonal.
  MIVO_FUNCTION bool isOpposite(L j, L k) const {
    const RealType<T> re = realPart(a.values[k]);
    return realPart(diagonal[j]) < RealType<T>(0) ? -re < RealType<T>(0) : re < RealType<T>(0);
  }
};

/// Lists what is asked for many times of F points: their strong C neighbours, and the entries in C
/// columns of the sign that counts.
template <class T, class L>
MIVO_FUNCTION void listCoarseEntries(const ExtendedMatrix<T, L>& m) {
  L nc = 0, nd = 0;
  m.c_ptr[0] = m.d.row_begin[0] = 0;
  for (L i = 0; i < m.s.rows; ++i) {
    if (m.isF(i)) {
      for (L k = m.s.row_begin[i]; k < m.s.row_end[i]; ++k) {
        const L j = m.s.col_idx[k];
        m.c_col[nc] = j;
        nc += m.s.values[k] != 0 && m.cf[j] >= 0 ? 1 : 0;
      }
      for (L k = m.a.row_begin[i]; k < m.a.row_end[i]; ++k) {
        m.d.col_idx[nd] = m.a.col_idx[k];
        m.d.values[nd] = m.a.values[k];
        nd += m.cf[m.a.col_idx[k]] >= 0 && m.isOpposite(i, k) ? 1 : 0;
      }
    }
    m.c_ptr[i + 1] = nc;
    m.d.row_begin[i + 1] = nd;
  }
}

/// Visits the interpolatory set of row i: its strong C neighbours and those of its strong F
/// neighbours. `onC(point)`, `onF(point)` before the neighbours of that.
template <class T, class L, class OnC, class OnF>
MIVO_FUNCTION void visitExtendedSet(const ExtendedMatrix<T, L>& m, L i, const OnC& onC,
                                    const OnF& onF) {
  for (L k = m.s.row_begin[i]; k < m.s.row_end[i]; ++k) {
    if (m.s.values[k] == 0) continue;
    const L j = m.s.col_idx[k];
    if (m.cf[j] >= 0) {
      onC(j);
    } else if (m.isF(j)) {
      onF(j);
      for (L q = m.c_ptr[j]; q < m.c_ptr[j + 1]; ++q) onC(m.c_col[q]);
    }
  }
}

/// Gives the share a of the strong F neighbour j of row i to those neighbours of j that are in the
/// interpolatory set, and to i itself, on whose diagonal it counts. `values` are those of the row,
/// the marker minus `begin` their places.
template <class T, class L>
MIVO_FUNCTION void distribute(const ExtendedMatrix<T, L>& m, L i, L j, const T& a, L begin,
                              const L* marker, T* values, T& diagonal) {
  const L k = m.find(j, i);
  const bool has_own = k < m.a.row_end[j] && m.isOpposite(j, k);
  T sum = has_own ? m.a.values[k] : T(0);
  // Which neighbours are in the set cannot be foretold, so that there is no branch on it.
  const L first = m.d.row_begin[j];
  const L end = m.d.row_begin[j + 1];
  L* const place = m.d.col_idx + m.d.row_begin[m.s.rows];
  T* const value = m.d.values + m.d.row_begin[m.s.rows];
  L n = 0;
  for (L q = first; q < end; ++q) {
    const L at = marker[m.d.col_idx[q]];
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
  for (L q = 0; q < n; ++q) values[place[q] - begin] += share * value[q];
}

/// Makes row `row` of the interpolation, with the points of its set as columns, in the order in
/// which they are met; returns its length. The marker holds less than `begin` for columns,
/// or a number of another row's strong F neighbours, none of which is `strongF`.
template <class T, class L>
MIVO_FUNCTION L interpolateRow(const ExtendedMatrix<T, L>& m, L row, L begin, L strongF, L* marker,
                               L* col_idx, T* values) {
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
        if (m.hints != nullptr) prefetchEntry(m.a.col_idx, m.a.values, m.hints[f]);
      });

  T diagonal = m.diagonal[i];
  for (L k = m.a.row_begin[i]; k < m.a.row_end[i]; ++k) {
    const L j = m.a.col_idx[k];
    if (j == i) continue;
    if (marker[j] >= begin) {
      values[marker[j] - begin] += m.a.values[k];
    } else if (marker[j] == strongF) {
      distribute(m, i, j, m.a.values[k], begin, marker, values, diagonal);
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

/// Brings the `most` entries of largest modulus of a row of more to the front, the largest first.
/// False, with nothing moved, where equal moduli leave open which these are, or in which order.
template <class T, class L>
MIVO_FUNCTION bool selectLargest(L n, int most, L* col_idx, T* values) {
  using R = RealType<T>;
  constexpr int kFew = 8;
  if (most > kFew) return false;
  R size[kFew];
  L place[kFew];
  R tied(-1);  // the largest modulus that has come twice
  int found = 0;
  for (L k = 0; k < n; ++k) {
    const R v = abs(values[k]);
    if (found == most && v < size[most - 1]) continue;
    if (!(v >= R(0))) return false;  // not a number
    int at = found;
    while (at > 0 && size[at - 1] < v) --at;
    if (at > 0 && size[at - 1] == v && tied < v) tied = v;
    if (at == most) continue;
    if (found < most) ++found;
    for (int q = found - 1; q > at; --q) {
      size[q] = size[q - 1];
      place[q] = place[q - 1];
    }
    size[at] = v;
    place[at] = k;
  }
  if (tied >= size[most - 1]) return false;
  L col[kFew];
  T value[kFew];
  for (int q = 0; q < most; ++q) {
    col[q] = col_idx[place[q]];
    value[q] = values[place[q]];
  }
  for (int q = 0; q < most; ++q) {
    col_idx[q] = col[q];
    values[q] = value[q];
  }
  return true;
}

/// Sorts a row of n by column and truncates it, with rescaling and by the largest modulus. Where it
/// makes no difference the row is cut before it is sorted; `failures` counts the last rows where it
/// did, after some of which only a few more are tried.
template <class T, class L>
MIVO_FUNCTION L sortAndTruncateRow(L n, RealType<T> trunc_factor, int max_elmts, L* col_idx,
                                   T* values, unsigned& failures) {
  if (n > max_elmts && !(trunc_factor > RealType<T>(0)) && (failures < 8 || failures++ % 64 == 0)) {
    T whole(0), kept(0);
    for (L k = 0; k < n; ++k) whole += values[k];
    if (selectLargest(n, max_elmts, col_idx, values)) {
      for (int k = 0; k < max_elmts; ++k) kept += values[k];
      rescaleTo(whole, kept, static_cast<L>(max_elmts), values);
      failures = 0;
      return max_elmts;
    }
    if (failures < 8) ++failures;
  }
  sortRow(L(0), n, col_idx, values);
  return truncateRow(n, trunc_factor, max_elmts, true, 0, col_idx, values);
}

}  // namespace sparse

/// Bodies of the kernels of extended+i interpolation (De Sterck, Falgout, Nolting and Yang 2008)
/// and of truncation.
template <class T, class L, class Space>
class SpExtendedInterpolationImpl {
 public:
  using R = RealType<T>;
  using View = COT_CSRRawMat<T, L>;
  using StrengthView = COT_CSRRawMat<int, L>;
  using Policy = spm::RangePolicy<Space>;

  static void par_boomeramg_interpolation_extended_pi(Space& space, View a, StrengthView s, L first,
                                                      L rows, const int* cf, const T* diagonal,
                                                      const int* dof, int* coarse, L* c_ptr,
                                                      L* c_col, View d, View p, L* marker);
  static void par_boomeramg_interpolation_extended_pi_truncated(
      Space& space, View a, StrengthView s, L first, L rows, const int* cf, const T* diagonal,
      const int* dof, const int* coarse, L* c_ptr, L* c_col, View d, R trunc_factor, int max_elmts,
      View row_space, View p, L* marker, L* hints);
  static void par_boomeramg_interpolation_add_rank_bias(Space& space, L n, int bias, int* coarse);
  static void boomeramg_csr_truncate(Space& space, View p, R trunc_factor, int max_elmts,
                                     bool rescale, int nrm_type, L* begin, L* end);
  static void hypre_qsort2_abs(Space& space, L* col_idx, T* values, L left, L right);
  static void extendedCount(Space& space, sparse::ExtendedMatrix<T, L> m, int* coarse, View p,
                            L* marker);
  static void extendedFill(Space& space, sparse::ExtendedMatrix<T, L> m, const int* coarse, View p,
                           L* marker);
};

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::par_boomeramg_interpolation_extended_pi(
    Space& space, View a, StrengthView s, L first, L rows, const int* cf, const T* diagonal,
    const int* dof, int* coarse, L* c_ptr, L* c_col, View d, View p, L* marker) {
  const sparse::ExtendedMatrix<T, L> m{a,   s,     first, rows, cf,     diagonal,
                                       dof, c_ptr, c_col, d,    nullptr};
  if (sparse::counting(p.col_idx, p.values)) {
    extendedCount(space, m, coarse, p, marker);
  } else {
    extendedFill(space, m, coarse, p, marker);
  }
}

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::extendedCount(Space& space,
                                                             sparse::ExtendedMatrix<T, L> m,
                                                             int* coarse, View p, L* marker) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < m.a.cols; ++c) marker[c] = -1;
    sparse::listCoarseEntries(m);
    int ncoarse = 0;
    for (L row = 0; row < m.rows; ++row) {
      const L i = m.first + row;
      coarse[i] = m.cf[i] >= 0 ? ncoarse++ : -1;
      if (p.row_begin == nullptr) continue;
      L n = m.cf[i] >= 0 ? 1 : 0;
      if (m.isF(i)) {
        sparse::visitExtendedSet(
            m, i,
            [&](L c) {
              if (marker[c] == row) return;
              marker[c] = row;
              ++n;
            },
            [](L) {});
      }
      p.row_begin[row + 1] = n;
    }
  });
  if (p.row_begin != nullptr) sparse::prefixSum(space, m.rows, p.row_begin);
}

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::extendedFill(Space& space,
                                                            sparse::ExtendedMatrix<T, L> m,
                                                            const int* coarse, View p, L* marker) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < m.a.cols; ++c) marker[c] = -1;
    for (L row = 0; row < m.rows; ++row) {
      const L begin = p.row_begin[row];
      L* const col_idx = p.col_idx + begin;
      const L n =
          sparse::interpolateRow(m, row, begin, -2 - row, marker, col_idx, p.values + begin);
      for (L k = 0; k < n; ++k) col_idx[k] = coarse[col_idx[k]];
    }
  });
}

template <class T, class L, class Space>
void SpExtendedInterpolationImpl<T, L, Space>::par_boomeramg_interpolation_extended_pi_truncated(
    Space& space, View a, StrengthView s, L first, L rows, const int* cf, const T* diagonal,
    const int* dof, const int* coarse, L* c_ptr, L* c_col, View d, R trunc_factor, int max_elmts,
    View row_space, View p, L* marker, L* hints) {
  const sparse::ExtendedMatrix<T, L> m{a,   s,     first, rows, cf,   diagonal,
                                       dof, c_ptr, c_col, d,    hints};
  const L last = std::numeric_limits<L>::max();
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    for (L c = 0; c < m.a.cols; ++c) {
      marker[c] = -1;
      hints[c] = m.a.row_begin[c];
    }
    L begin = 0;
    unsigned failures = 0;
    if (m.rows > 0) p.row_begin[0] = 0;
    for (L row = 0; row < m.rows; ++row) {
      L n = sparse::interpolateRow(m, row, begin, -2 - row, marker, row_space.col_idx,
                                   row_space.values);
      begin += n;
      if (begin > last - m.a.cols) {  // the next row's marks could pass the end of the type
        for (L c = 0; c < m.a.cols; ++c) marker[c] = -1;
        begin = 0;
      }
      // Coarse numbers ascend like the points.
      n = sparse::sortAndTruncateRow(n, trunc_factor, max_elmts, row_space.col_idx,
                                     row_space.values, failures);
      const L at = p.row_begin[row];
      for (L k = 0; k < n; ++k) {
        p.col_idx[at + k] = coarse[row_space.col_idx[k]];
        p.values[at + k] = row_space.values[k];
      }
      p.row_begin[row + 1] = at + n;
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
