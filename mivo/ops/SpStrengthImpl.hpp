// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/block_rows.hpp"
#include "mivo/ops/level_transfer_records.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

namespace sparse {

/// What the strength of row i is measured by: the largest off-diagonal entry on the other side of
/// zero than the diagonal d, and the sum of the row. Complex entries are ordered by their real
/// part.
template <class T>
struct RowScale {
  using R = RealType<T>;
  T sum;
  R scale = R(0);
  bool negative;

  MIVO_FUNCTION explicit RowScale(const T& d) : sum(d), negative(realPart(d) < R(0)) {}
  MIVO_FUNCTION void add(const T& a) {
    const R re = realPart(a);
    const bool larger = negative ? re > scale : re < scale;
    scale = larger ? re : scale;
    sum += a;
  }
  MIVO_FUNCTION bool isStrong(const T& a, R threshold) const {
    return negative ? realPart(a) > threshold : realPart(a) < threshold;
  }
};

}  // namespace sparse

/// Body of the kernel of classical strength of connection.
template <class T, class L, class Space>
class SpStrengthImpl {
 public:
  using R = RealType<T>;

  static void par_boomeramg_strength(Space& space, StrengthRows<T, L> m, R strong_threshold,
                                     R max_row_sum);
};

template <class T, class L, class Space>
void SpStrengthImpl<T, L, Space>::par_boomeramg_strength(Space& space, StrengthRows<T, L> m,
                                                         R strong_threshold, R max_row_sum) {
  using Block = COT_SpMVCSRRawMat<T, L>;
  using StrengthBlock = COT_SpMVCSRRawMat<int, L>;
  spm::parallel_for(spm::RangePolicy<Space>(space, 0, m.rows), [=] MIVO_FUNCTION(L i) {
    // Entries that take part: off the diagonal, and of the same function.
    const auto counts = [&](const Block& block, L k) {
      const L c = block.col_idx[k];
      if (sparse::onDiagonal(block, i, c)) return false;
      return m.dof == nullptr || *sparse::valueOfColumn(block.rank, c, m.rank, m.dof, m.nviews,
                                                        m.dof_ghosts) == m.dof[i];
    };
    const T& d = m.diagonal[i];
    sparse::RowScale<T> row(d);
    sparse::rsLoopAllCol(i, m.nblocks, m.a, m.s,
                         [&](const Block& block, const StrengthBlock&, L k) {
                           if (counts(block, k)) row.add(block.values[k]);
                         });
    // A dominant row has no strong entry.
    const bool dominant = max_row_sum < R(1) && abs(row.sum) > abs(d) * max_row_sum;
    const R threshold = row.scale * strong_threshold;
    sparse::rsLoopAllCol(
        i, m.nblocks, m.a, m.s, [&](const Block& block, const StrengthBlock& out, L k) {
          const bool strong = !dominant && counts(block, k);
          out.values[k] = static_cast<int>(strong && row.isStrong(block.values[k], threshold));
        });
  });
}

}  // namespace mivo
