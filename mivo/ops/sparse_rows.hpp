// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>

#include "mivo/ops/host/prefetch.hpp"
#include "mivo/ops/norms.hpp"
#include "mivo/ops/views.hpp"
#include "mivo/spm/atomic.hpp"
#include "mivo/spm/parallel.hpp"
#include "mivo/utils/ScalarTraits.hpp"

namespace mivo::sparse {

// What the sparse kernels do with single rows, on the host as on a device.

/// True while the arrays that a two-pass member fills have not been allocated.
template <class T, class I>
MIVO_FUNCTION bool counting(const I* col_idx, const T* values) {
  return col_idx == nullptr || values == nullptr;
}

/// Sum of a_j x_j over positions [begin, end), in stored order, added to s. Unrolled by hand: left
/// alone, compilers vectorise along the short row and lose more than they gain.
template <class T, class I>
[[gnu::always_inline]] MIVO_FUNCTION inline T rowDot(I begin, I end, const I* col_idx,
                                                     const T* values, const T* x, T s) {
  const I tail = end - ((end - begin) & 3);
  I k = begin;
  for (; k < tail; k += 4) {
    s += values[k] * x[col_idx[k]];
    s += values[k + 1] * x[col_idx[k + 1]];
    s += values[k + 2] * x[col_idx[k + 2]];
    s += values[k + 3] * x[col_idx[k + 3]];
  }
  for (; k < end; ++k) s += values[k] * x[col_idx[k]];
  return s;
}

/// Value of the row's entry in column `col`; `missing` if there is none, the last of several.
template <class T, class I>
MIVO_FUNCTION T rowEntry(I begin, I end, const I* col_idx, const T* values, I col, T missing) {
  T d = missing;
  for (I k = begin; k < end; ++k) {
    if (col_idx[k] == col) d = values[k];
  }
  return d;
}

/// Position of the first entry in column `col`, `end` if there is none.
template <class I>
MIVO_FUNCTION I findColumn(I begin, I end, const I* col_idx, I col) {
  I k = begin;
  while (k < end && col_idx[k] != col) ++k;
  return k;
}

/// Stable insertion sort by column, the values moved along. Rows are mostly in order, or made of
/// runs that are.
template <class T, class I>
MIVO_FUNCTION void sortRow(I begin, I end, I* col_idx, T* values) {
  for (I k = begin + 1; k < end; ++k) {
    const I c = col_idx[k];
    if (!(col_idx[k - 1] > c)) continue;
    const T v = values[k];
    I j = k;
    do {
      col_idx[j] = col_idx[j - 1];
      values[j] = values[j - 1];
      --j;
    } while (j > begin && col_idx[j - 1] > c);
    col_idx[j] = c;
    values[j] = v;
  }
}

/// Copies n entries to `dst_col` and `dst_val`, the columns moved by `shift`.
template <class T, class I>
MIVO_FUNCTION void copyRow(I n, const I* src_col, const T* src_val, I shift, I* dst_col,
                           T* dst_val) {
  for (I k = 0; k < n; ++k) {
    dst_col[k] = src_col[k] + shift;
    dst_val[k] = src_val[k];
  }
}

/// Merges the sorted rows i of A and B, scaled, into `col_idx` and `values`; returns the merged
/// length.
template <class T, class I>
MIVO_FUNCTION I mergeRows(T alpha, const COT_CSRRawMat<T, I>& a, T beta,
                          const COT_CSRRawMat<T, I>& b, I i, I* col_idx, T* values) {
  I ka = a.row_begin[i];
  I kb = b.row_begin[i];
  const I enda = a.row_end[i];
  const I endb = b.row_end[i];
  I n = 0;
  for (; ka < enda || kb < endb; ++n) {
    if (kb == endb || (ka < enda && a.col_idx[ka] < b.col_idx[kb])) {
      col_idx[n] = a.col_idx[ka];
      values[n] = alpha * a.values[ka++];
    } else if (ka == enda || b.col_idx[kb] < a.col_idx[ka]) {
      col_idx[n] = b.col_idx[kb];
      values[n] = beta * b.values[kb++];
    } else {
      col_idx[n] = b.col_idx[kb];
      values[n] = beta * b.values[kb++] + alpha * a.values[ka++];
    }
  }
  return n;
}

/// Columns of row i of A B that carry another mark than i; they are given it. Sets `any` when there
/// are products at all.
template <class I>
[[gnu::always_inline]] MIVO_FUNCTION inline I markProductRow(I i, const I* a_rowptr,
                                                             const I* a_col_idx, const I* b_rowptr,
                                                             const I* b_col_idx, I* marker,
                                                             bool& any) {
  I n = 0;
  for (I ka = a_rowptr[i]; ka < a_rowptr[i + 1]; ++ka) {
    const I row = a_col_idx[ka];
    any = any || b_rowptr[row] < b_rowptr[row + 1];
    for (I kb = b_rowptr[row]; kb < b_rowptr[row + 1]; ++kb) {
      const I c = b_col_idx[kb];
      if (marker[c] == i) continue;
      marker[c] = i;
      ++n;
    }
  }
  return n;
}

/// Adds entries with the columns col_idx[begin..end), moved by `shift`, and the values `value(k)`
/// to a row that begins at `start` and ends at `next`; the marker holds the positions of its
/// columns, and elsewhere something below `start`. Returns the new end.
template <class T, class I, class Value>
[[gnu::always_inline]] MIVO_FUNCTION inline I addEntries(I begin, I end, const I* col_idx, I shift,
                                                         const Value& value, I start, I next,
                                                         I* c_col_idx, T* c_values, I* marker) {
  for (I k = begin; k < end; ++k) {
    const I c = col_idx[k] + shift;
    const T v = value(k);
    if (marker[c] >= start) {
      c_values[marker[c]] += v;
    } else {
      marker[c] = next;
      c_col_idx[next] = c;
      c_values[next] = v;
      ++next;
    }
  }
  return next;
}

/// Adds a times the entries [begin, end), their columns moved by `shift`, to such a row.
template <class T, class I>
[[gnu::always_inline]] MIVO_FUNCTION inline I addScaledRow(const T& a, I begin, I end,
                                                           const I* col_idx, const T* values,
                                                           I shift, I start, I next, I* c_col_idx,
                                                           T* c_values, I* marker) {
  return addEntries(
      begin, end, col_idx, shift, [&](I k) { return values[k] * a; }, start, next, c_col_idx,
      c_values, marker);
}

/// Adds row i of A B to a row of C, which is as told above.
template <class T, class I>
[[gnu::always_inline]] MIVO_FUNCTION inline I addProductRow(I i, const I* a_rowptr,
                                                            const I* a_col_idx, const T* a_values,
                                                            const I* b_rowptr, const I* b_col_idx,
                                                            const T* b_values, I start, I next,
                                                            I* c_col_idx, T* c_values, I* marker) {
  for (I k = a_rowptr[i]; k < a_rowptr[i + 1]; ++k) {
    const I row = a_col_idx[k];
    const T a = a_values[k];
    next = addScaledRow(a, b_rowptr[row], b_rowptr[row + 1], b_col_idx, b_values, I(0), start, next,
                        c_col_idx, c_values, marker);
  }
  return next;
}

/// Membership in an ascending list by binary search.
template <class I>
MIVO_FUNCTION bool contains(I n, const I* sorted, I value) {
  I lo = 0;
  I hi = n;
  while (lo < hi) {
    const I mid = lo + (hi - lo) / 2;
    if (sorted[mid] == value) return true;
    if (sorted[mid] < value) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  return false;
}

/// Mixing step of a 32-bit hash (Appleby's finalizer), in the width of I.
template <class I>
MIVO_FUNCTION std::make_unsigned_t<I> hashColumn(I column) {
  using U = std::make_unsigned_t<I>;
  const U k = static_cast<U>(column);
  U h = static_cast<U>((k ^ (k >> 16)) * U(0x85EBCA6BU));
  h = static_cast<U>((h ^ (h >> 13)) * U(0xC2B2AE35U));
  return h ^ (h >> 16);
}

/// Inserts `key` into the n slots of one row with the value `next`; true if it was not there
/// before.
template <class I>
MIVO_FUNCTION bool hashInsert(HashTableSlot<I, I>* slots, std::uint32_t n, I key, I next) {
  using Slot = HashTableSlot<I, I>;
  Slot* target = nullptr;
  std::uint32_t at = static_cast<std::uint32_t>(hashColumn(key) % n);
  for (std::uint32_t probe = 0; probe < n; ++probe, at = at + 1 == n ? 0 : at + 1) {
    Slot& slot = slots[at];
    if (slot.state == Slot::kOccupied) {
      if (slot.key == key) return false;
      continue;
    }
    if (target == nullptr) target = &slot;
    if (slot.state == Slot::kFree) break;
  }
  if (target == nullptr) spm::trap();
  target->key = key;
  target->value = next;
  target->state = Slot::kOccupied;
  return true;
}

/// Value stored with `key` in the n slots of one row; a missing key is a fault.
template <class I>
MIVO_FUNCTION I hashFind(const HashTableSlot<I, I>* slots, std::uint32_t n, I key) {
  using Slot = HashTableSlot<I, I>;
  std::uint32_t at = static_cast<std::uint32_t>(hashColumn(key) % n);
  for (std::uint32_t probe = 0; probe < n; ++probe, at = at + 1 == n ? 0 : at + 1) {
    if (slots[at].state == Slot::kFree) break;
    if (slots[at].state == Slot::kOccupied && slots[at].key == key) return slots[at].value;
  }
  spm::trap();
  return 0;
}

/// Turns row lengths at rowptr[1..n] into row pointers, as one task. Pointers that the index type
/// cannot hold are -1, the last one included. Matrices without rows may come with a null array.
template <class I, class Space>
void prefixSum(Space& space, I n, I* rowptr) {
  if (rowptr == nullptr) return;
  constexpr I kMost = std::numeric_limits<I>::max();
  spm::parallel_for(spm::RangePolicy<Space>(space, 0, 1), [=] MIVO_FUNCTION(I) {
    rowptr[0] = 0;
    I i = 0;
    for (; i < n && rowptr[i + 1] <= kMost - rowptr[i]; ++i) rowptr[i + 1] += rowptr[i];
    for (; i < n; ++i) rowptr[i + 1] = -1;
  });
}

/// Undoes the use of row pointers as cursors: rowptr[i] holds the end of row i and becomes its
/// begin. Matrices without rows may come with a null array.
template <class I>
MIVO_FUNCTION void shiftUp(I n, I* rowptr) {
  if (rowptr == nullptr) return;
  for (I i = n; i > 0; --i) rowptr[i] = rowptr[i - 1];
  rowptr[0] = 0;
}

}  // namespace mivo::sparse
