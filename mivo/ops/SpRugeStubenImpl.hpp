// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

#include "mivo/ops/block_rows.hpp"
#include "mivo/ops/level_transfer_records.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

namespace sparse {

/// One row of direct interpolation (Ruge and Stueben 1987). `visit(f)` calls f(value, isDiagonal,
/// isStrongC, coarse) for the entries of the row. Entries are ordered by their real part.
template <class T>
struct DirectRow {
  using R = RealType<T>;
  bool truncates;
  R low = R(0);   ///< eps_trunc times the least strong C entry, at most 0
  R high = R(0);  ///< eps_trunc times the greatest one, at least 0

  /// Whether a strong C entry stays.
  MIVO_FUNCTION bool keeps(const T& v) const {
    return !truncates || realPart(v) < low || realPart(v) > high;
  }

  template <class Visit>
  MIVO_FUNCTION void findBounds(const Visit& visit, R eps_trunc) {
    if (!truncates) return;
    R least(0), greatest(0);
    visit([&](const T& v, bool, bool strongC, int) {
      if (!strongC) return;
      if (realPart(v) < least) least = realPart(v);
      if (realPart(v) > greatest) greatest = realPart(v);
    });
    low = eps_trunc * least;
    high = eps_trunc * greatest;
  }

  /// Factors of the negative and of the positive entries.
  template <class Visit>
  MIVO_FUNCTION void findFactors(const Visit& visit, T* alpha, T* beta) const {
    constexpr R eps = static_cast<R>(1.0 / (1LL << 26) / (1LL << 26));  // 2^-52
    T dia(0), a_num(0), a_den(0), b_num(0), b_den(0), d_neg(0), d_pos(0);
    visit([&](const T& v, bool isDiagonal, bool strongC, int) {
      if (isDiagonal) {
        dia += v;
      } else if (realPart(v) < R(0)) {
        a_num += v;
        if (strongC) a_den += v;
        if (strongC && truncates && realPart(v) > low) d_neg += v;
      } else {
        b_num += v;
        if (strongC) b_den += v;
        if (strongC && truncates && realPart(v) < high) d_pos += v;
      }
    });
    R cf_neg(1), cf_pos(1);
    if (truncates) {
      if (abs(a_den - d_neg) > eps) cf_neg = abs(a_den) / abs(a_den - d_neg);
      if (abs(b_den - d_pos) > eps) cf_pos = abs(b_den) / abs(b_den - d_pos);
    }
    if (realPart(b_num) > R(0) && abs(b_den) < eps) dia += b_num;
    *alpha = abs(a_den) > eps ? T(-cf_neg * abs(a_num)) / (dia * T(abs(a_den))) : T(0);
    *beta = abs(b_den) > eps ? T(-cf_pos * abs(b_num)) / (dia * T(abs(b_den))) : T(0);
  }

  /// Entries of a row of P.
  template <class Visit>
  MIVO_FUNCTION int count(const Visit& visit) const {
    int n = 0;
    visit([&](const T& v, bool, bool strongC, int) { n += strongC && keeps(v) ? 1 : 0; });
    return n;
  }
  template <class Visit, class L>
  MIVO_FUNCTION void fill(const Visit& visit, L at, L* col_idx, T* values) const {
    T alpha, beta;
    findFactors(visit, &alpha, &beta);
    visit([&](const T& v, bool, bool strongC, int coarse) {
      if (!strongC || !keeps(v)) return;
      col_idx[at] = coarse;
      values[at] = (realPart(v) < R(0) ? alpha : beta) * v;
      ++at;
    });
  }
};

/// Calls f(value, isDiagonal, isStrongC, coarse) for the entries of row i.
template <class T, class L, class F>
MIVO_FUNCTION void visitRow(const DirectRows<T, L>& m, L i, const F& f) {
  for (L k = m.a.row_begin[i]; k < m.a.row_end[i]; ++k) {
    const L j = m.a.col_idx[k];
    f(m.a.values[k], j == i, j != i && m.s.values[k] != 0 && m.cf[j] == m.cmark, m.cidx[j]);
  }
}
template <class T, class L, class F>
MIVO_FUNCTION void visitRow(const DirectBlocks<T, L>& m, L i, const F& f) {
  L q = 0;
  for (L b = 0; b < m.nblocks; ++b) {
    const COT_SpMVCSRRawMat<T, L>& block = m.a[b];
    while (q < m.nstrong && m.s[q].rank < block.rank) ++q;
    const bool found = q < m.nstrong && m.s[q].rank == block.rank;
    const COT_SpMVCSRRawMat<int, L>* strong = found ? m.s + q : nullptr;
    L at = found ? strong->row_begin[i] : L(0);
    const L end = found ? strong->row_end[i] : L(0);
    for (L k = block.row_begin[i]; k < block.row_end[i]; ++k) {
      const L j = block.col_idx[k];
      const bool has = at < end && strong->col_idx[at] == j;
      const bool isStrong = has && strong->values[at] != 0;
      at += has ? 1 : 0;
      const bool diagonal = onDiagonal(block, i, j);
      bool strongC = false;
      int coarse = -1;
      if (isStrong && !diagonal) {
        strongC = *valueOfColumn(block.rank, j, m.rank, m.cf, m.nviews, m.cf_ghosts) == m.cmark;
        if (strongC) {
          coarse = *valueOfColumn(block.rank, j, m.rank, m.cidx, m.nviews, m.cidx_ghosts);
        }
      }
      f(block.values[k], diagonal, strongC, coarse);
    }
  }
}

/// The nodes of the classical splitting in buckets by their weight: those of bucket l have the
/// ranks [ptr[l], ptr[l] + cnt[l]).
template <class L>
struct WeightBuckets {
  L* lambda;
  L* ptr;
  L* cnt;
  L* i2n;  ///< node of a rank
  L* n2i;  ///< rank of a node

  MIVO_FUNCTION void exchange(L node, L place) const {
    const L from = n2i[node];
    const L other = i2n[place];
    i2n[from] = other;
    n2i[other] = from;
    i2n[place] = node;
    n2i[node] = place;
  }
  MIVO_FUNCTION void moveUp(L j) const {
    const L l = lambda[j];
    exchange(j, ptr[l] + cnt[l] - 1);
    --cnt[l];
    ++cnt[l + 1];
    ptr[l + 1] = ptr[l] + cnt[l];
    lambda[j] = l + 1;
  }
  MIVO_FUNCTION void moveDown(L j) const {
    const L l = lambda[j];
    exchange(j, ptr[l]);
    --cnt[l];
    ++cnt[l - 1];
    ++ptr[l];
    lambda[j] = l - 1;
  }
};

}  // namespace sparse

/// Bodies of the kernels of classical coarsening (Ruge and Stueben 1987): marks 'C', 'F' and 'U'
/// for undecided.
template <class T, class L, class Space>
class SpRugeStubenImpl {
 public:
  using R = RealType<T>;
  using View = COT_CSRRawMat<T, L>;
  using StrengthView = COT_CSRRawMat<int, L>;
  using Block = COT_SpMVCSRRawMat<T, L>;
  using StrengthBlock = COT_SpMVCSRRawMat<int, L>;
  using Policy = spm::RangePolicy<Space>;

  static void rs_connect(Space& space, View a, R eps_strong, StrengthView s, int* cf);
  static void par_rs_connect(Space& space, L rows, L nblocks, const Block* a, R eps_strong,
                             const StrengthBlock* s, int* cf);
  static void rs_cfsplit(Space& space, View a, StrengthView s, int* cf, StrengthView st, L* lambda,
                         L* ptr, L* cnt, L* i2n, L* n2i);
  static void par_rs_cfsplit(Space& space, StrengthView s, StrengthView st, int* cf, L* lambda,
                             L* ptr, L* cnt, L* i2n, L* n2i);
  static void rs_interpolation(Space& space, bool counts, DirectRows<T, L> m);
  static void par_rs_interpolation(Space& space, bool counts, DirectBlocks<T, L> m);
  template <class Rows>
  static void directCount(Space& space, Rows m);
  template <class Rows>
  static void directFill(Space& space, Rows m);
};

template <class T, class L, class Space>
void SpRugeStubenImpl<T, L, Space>::par_rs_connect(Space& space, L rows, L nblocks, const Block* a,
                                                   R eps_strong, const StrengthBlock* s, int* cf) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(L i) {
    constexpr R tiny = static_cast<R>(1.0 / (1LL << 26) / (1LL << 25));  // 2^-51
    bool empty = true;
    R least(0);
    sparse::rsLoopAllCol(i, nblocks, a, s, [&](const Block& block, const StrengthBlock& out, L k) {
      empty = false;
      out.values[k] = 0;
      const R v = realPart(block.values[k]);
      if (!sparse::onDiagonal(block, i, block.col_idx[k]) && v < least) least = v;
    });
    if (empty || abs(least) < tiny) {
      cf[i] = 'F';
      return;
    }
    least = least * eps_strong;
    sparse::rsLoopAllCol(i, nblocks, a, s, [&](const Block& block, const StrengthBlock& out, L k) {
      const bool diagonal = sparse::onDiagonal(block, i, block.col_idx[k]);
      if (!diagonal && realPart(block.values[k]) < least) out.values[k] = 1;
    });
  });
}

template <class T, class L, class Space>
void SpRugeStubenImpl<T, L, Space>::rs_connect(Space& space, View a, R eps_strong, StrengthView s,
                                               int* cf) {
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(L i) {
    constexpr R tiny = static_cast<R>(1.0 / (1LL << 26) / (1LL << 25));  // 2^-51
    R least(0);
    for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      s.values[k] = 0;
      const R v = realPart(a.values[k]);
      if (a.col_idx[k] != i && v < least) least = v;
    }
    if (a.row_begin[i] == a.row_end[i] || abs(least) < tiny) {
      cf[i] = 'F';
      return;
    }
    least = least * eps_strong;
    for (L k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      if (a.col_idx[k] != i && realPart(a.values[k]) < least) s.values[k] = 1;
    }
  });
}

template <class T, class L, class Space>
void SpRugeStubenImpl<T, L, Space>::rs_cfsplit(Space& space, View /*a*/, StrengthView s, int* cf,
                                               StrengthView st, L* lambda, L* ptr, L* cnt, L* i2n,
                                               L* n2i) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    const sparse::WeightBuckets<L> buckets{lambda, ptr, cnt, i2n, n2i};
    const L n = s.rows;
    const L most = 2 * n;  // an undecided dependant weighs 1, another one 2
    for (L l = 0; l <= most + 1; ++l) ptr[l] = cnt[l] = 0;
    for (L i = 0; i < n; ++i) {
      L weight = 0;
      for (L k = st.row_begin[i]; k < st.row_end[i]; ++k) {
        weight += cf[st.col_idx[k]] == 'U' ? 1 : 2;
      }
      lambda[i] = weight;
      ++ptr[weight + 1];
    }
    for (L l = 0; l <= most; ++l) ptr[l + 1] += ptr[l];
    for (L i = 0; i < n; ++i) {
      const L place = ptr[lambda[i]] + cnt[lambda[i]]++;
      i2n[place] = i;
      n2i[i] = place;
    }
    for (L top = n - 1; top >= 0; --top) {
      const L i = i2n[top];
      if (lambda[i] == 0) {
        for (L j = 0; j < n; ++j) {
          if (cf[j] == 'U') cf[j] = 'C';
        }
        break;
      }
      --cnt[lambda[i]];
      if (cf[i] == 'F') continue;
      cf[i] = 'C';
      for (L k = st.row_begin[i]; k < st.row_end[i]; ++k) {
        const L c = st.col_idx[k];
        if (cf[c] != 'U') continue;
        cf[c] = 'F';
        for (L q = s.row_begin[c]; q < s.row_end[c]; ++q) {
          const L j = s.col_idx[q];
          if (s.values[q] != 0 && cf[j] == 'U' && lambda[j] + 1 < n) buckets.moveUp(j);
        }
      }
      for (L k = s.row_begin[i]; k < s.row_end[i]; ++k) {
        const L c = s.col_idx[k];
        if (s.values[k] != 0 && cf[c] == 'U' && lambda[c] > 0) buckets.moveDown(c);
      }
    }
  });
}

template <class T, class L, class Space>
void SpRugeStubenImpl<T, L, Space>::par_rs_cfsplit(Space& space, StrengthView s, StrengthView st,
                                                   int* cf, L* lambda, L* ptr, L* cnt, L* i2n,
                                                   L* n2i) {
  rs_cfsplit(space, View(), s, cf, st, lambda, ptr, cnt, i2n, n2i);
}

template <class T, class L, class Space>
template <class Rows>
void SpRugeStubenImpl<T, L, Space>::directCount(Space& space, Rows m) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(L) {
    int n = 0;
    for (L i = 0; i < m.rows; ++i) m.cidx[i] = m.cf[i] == m.cmark ? n++ : -1;
    *m.ncoarse = n;
  });
  spm::parallel_for(Policy(space, 0, m.rows), [=] MIVO_FUNCTION(L i) {
    if (m.cf[i] == m.cmark) {
      m.p.row_begin[i + 1] = 1;
      return;
    }
    const auto visit = [&](const auto& f) { sparse::visitRow(m, i, f); };
    sparse::DirectRow<T> row{m.do_trunc};
    row.findBounds(visit, m.eps_trunc);
    m.bounds[2 * i] = row.low;
    m.bounds[2 * i + 1] = row.high;
    m.p.row_begin[i + 1] = row.count(visit);
  });
  sparse::prefixSum(space, m.rows, m.p.row_begin);
}

template <class T, class L, class Space>
template <class Rows>
void SpRugeStubenImpl<T, L, Space>::directFill(Space& space, Rows m) {
  spm::parallel_for(Policy(space, 0, m.rows), [=] MIVO_FUNCTION(L i) {
    const L at = m.p.row_begin[i];
    if (m.cf[i] == m.cmark) {
      m.p.col_idx[at] = m.cidx[i];
      m.p.values[at] = T(1);
      return;
    }
    const sparse::DirectRow<T> row{m.do_trunc, m.bounds[2 * i], m.bounds[2 * i + 1]};
    row.fill([&](const auto& f) { sparse::visitRow(m, i, f); }, at, m.p.col_idx, m.p.values);
  });
}

template <class T, class L, class Space>
void SpRugeStubenImpl<T, L, Space>::rs_interpolation(Space& space, bool counts,
                                                     DirectRows<T, L> m) {
  counts ? directCount(space, m) : directFill(space, m);
}

template <class T, class L, class Space>
void SpRugeStubenImpl<T, L, Space>::par_rs_interpolation(Space& space, bool counts,
                                                         DirectBlocks<T, L> m) {
  counts ? directCount(space, m) : directFill(space, m);
}

}  // namespace mivo
