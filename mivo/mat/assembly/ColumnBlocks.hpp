// SPDX-License-Identifier: Apache-2.0
#pragma once

// Rows with global columns become the column blocks of a distributed matrix, as the last step of an
// assembly and of operations that make whole rows. Internal.

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/Partitioner.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

/// Sorts the entries of a row by column, keeping the order of entries of one column.
template <class Entry>
void sortRow(Entry* entries, std::size_t count) {
  constexpr std::size_t kInsertion = 32;
  const auto before = [](const Entry& a, const Entry& b) { return a.first < b.first; };
  if (count > kInsertion) {
    if (!std::is_sorted(entries, entries + count, before)) {
      std::stable_sort(entries, entries + count, before);
    }
    return;
  }
  for (std::size_t k = 1; k < count; ++k) {
    if (!(entries[k].first < entries[k - 1].first)) continue;
    const Entry moved = entries[k];
    std::size_t place = k;
    do {
      entries[place] = entries[place - 1];
      --place;
    } while (place > 0 && moved.first < entries[place - 1].first);
    entries[place] = moved;
  }
}

/// Adds up the entries of each column of a sorted row, in their order; gives the number that
/// remain.
template <class Entry>
std::size_t sumDuplicates(Entry* entries, std::size_t count) {
  std::size_t last = 0;
  for (std::size_t k = 1; k < count; ++k) {
    if (entries[k].first == entries[last].first) {
      entries[last].second += entries[k].second;
    } else if (++last != k) {
      entries[last] = entries[k];
    }
  }
  return count == 0 ? 0 : last + 1;
}

/// The part of the entries of a sorted row, found from the part of the entry before.
template <class G, class L>
class PartCursor {
 public:
  explicit PartCursor(const PartitionerT<G, L>& part) : offsets_(part.getOffsets()) {}

  std::size_t find(G col) {
    MIVO_CHECK(seek(col)) << "endAssemble: column " << col << " lies outside the matrix";
    return part_;
  }
  /// Moves to the part that holds the column; false, without effect, where none does.
  bool seek(G col) {
    if (col < begin_ || col >= end_) {
      const auto above = std::upper_bound(offsets_.begin(), offsets_.end(), col);
      if (above == offsets_.begin() || above == offsets_.end()) return false;
      part_ = static_cast<std::size_t>(above - offsets_.begin()) - 1;
      begin_ = offsets_[part_];
      end_ = *above;
    }
    return true;
  }
  std::size_t part() const { return part_; }
  /// First column of the part that was found last.
  G begin() const { return begin_; }

 private:
  const std::vector<G>& offsets_;
  std::size_t part_ = 0;
  G begin_ = 0;
  G end_ = 0;
};

template <class L>
L narrowEntryCount(std::size_t count) {
  MIVO_CHECK(count <= static_cast<std::size_t>(std::numeric_limits<L>::max()))
      << "endAssemble: " << count << " entries of one block exceed the index type";
  return static_cast<L>(count);
}

/// Column blocks on the host, one per part, those without entries default-built.
///
/// `source` hands out the rows in order, twice: `source.restart(last)` begins a walk,
/// `source.count(i)` tells the number of entries of row i, and `source.row(i)` gives them, sorted
/// by column and without duplicates.
template <class T, class G, class L, class Source>
std::vector<CSRMatrixT<T, L>> buildColumnBlocks(const PartitionerT<G, L>& part, L rows,
                                                Source& source) {
  std::vector<CSRMatrixT<T, L>> blocks(static_cast<std::size_t>(part.getNumParts()));
  if (rows == 0 || blocks.empty()) return blocks;

  std::vector<std::size_t> nnz(blocks.size(), 0);
  PartCursor<G, L> cursor(part);
  source.restart(false);
  for (L i = 0; i < rows; ++i) {
    const std::size_t count = source.count(i);
    if (blocks.size() == 1 || count == 0) {
      nnz[0] += count;
      continue;
    }
    const auto* entries = source.row(i);
    for (std::size_t k = 0; k < count; ++k) ++nnz[cursor.find(entries[k].first)];
  }

  struct Target {
    L* row_ptr;
    L* col_idx;
    T* values;
    L filled;
  };
  std::vector<Target> targets;
  std::vector<std::size_t> targetOf(blocks.size(), 0);
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    if (nnz[p] == 0) continue;
    blocks[p].create(rows, part.getLocalSizeForPart(static_cast<L>(p)), narrowEntryCount<L>(nnz[p]),
                     Device());
    blocks[p].getRowPtr()[0] = 0;
    targetOf[p] = targets.size();
    targets.push_back({blocks[p].getRowPtr(), blocks[p].getColIdx(), blocks[p].getValues(), 0});
  }
  if (targets.empty()) return blocks;

  source.restart(true);
  if (blocks.size() == 1) {
    const Target out = targets[0];
    G begin = 0, end = 0;
    part.getOwnerShipRangeForPart(0, &begin, &end);
    std::size_t filled = 0;
    for (L i = 0; i < rows; ++i) {
      const std::size_t count = source.count(i);
      if (count > 0) {
        const auto* entries = source.row(i);
        MIVO_CHECK(entries[0].first >= begin && entries[count - 1].first < end)
            << "endAssemble: column "
            << (entries[0].first < begin ? entries[0].first : entries[count - 1].first)
            << " lies outside the matrix";
        for (std::size_t k = 0; k < count; ++k) {
          out.col_idx[filled + k] = static_cast<L>(entries[k].first - begin);
          out.values[filled + k] = entries[k].second;
        }
        filled += count;
      }
      out.row_ptr[i + 1] = static_cast<L>(filled);
    }
    return blocks;
  }
  for (L i = 0; i < rows; ++i) {
    const std::size_t count = source.count(i);
    const auto* entries = count > 0 ? source.row(i) : nullptr;
    for (std::size_t k = 0; k < count; ++k) {
      Target& out = targets[targetOf[cursor.find(entries[k].first)]];
      out.col_idx[out.filled] = static_cast<L>(entries[k].first - cursor.begin());
      out.values[out.filled] = entries[k].second;
      ++out.filled;
    }
    for (Target& out : targets) out.row_ptr[i + 1] = out.filled;
  }
  return blocks;
}

/// The column blocks of a matrix, on its device, those without entries default-built: an array of
/// row pointers for each of many parts would take more than the entries. Entries of a row keep
/// their order; those in columns of no part are left out. One part shares the matrix; a matrix
/// without entries has no blocks.
template <class T, class I, class G, class L>
std::vector<CSRMatrixT<T, I>> cutColumns(const CSRMatrixT<T, I>& m,
                                         const PartitionerT<G, L>& part) {
  std::vector<CSRMatrixT<T, I>> blocks;
  if (m.getNnz() == 0) return blocks;
  MIVO_CHECK(static_cast<long>(m.getCols()) == static_cast<long>(part.getGlobalSize()))
      << "splitRows: rows.size() != partitioner.getGlobalSize()";
  blocks.resize(static_cast<std::size_t>(part.getNumParts()));
  if (blocks.size() == 1) {
    blocks[0] = m;
    return blocks;
  }
  const bool onHost = m.getDevice().type == Device::kHost;
  MatrixT<I, I, MatrixLayoutRowMajor> copy;
  if (!onHost) {
    copy.create(m.getNnz(), 1, Device());
    m.getDevice().rawCopyTo(static_cast<std::size_t>(m.getNnz()) * sizeof(I), m.getColIdx(),
                            Device(), copy.getData());
  }
  const I* const columns = onHost ? m.getColIdx() : copy.getData();
  std::vector<I> nnz(blocks.size(), 0);
  PartCursor<G, L> cursor(part);
  for (I k = 0; k < m.getNnz(); ++k) {
    if (cursor.seek(static_cast<G>(columns[k]))) ++nnz[cursor.part()];
  }

  struct Target {
    I* row_ptr;
    I* col_idx;
    T* values;
    I rows;  ///< whose pointers are set
    I filled;
  };
  std::vector<Target> targets;
  std::vector<std::size_t> targetOf(blocks.size(), 0);
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    if (nnz[p] == 0) continue;
    G begin = 0, end = 0;
    part.getOwnerShipRangeForPart(static_cast<L>(p), &begin, &end);
    if (!onHost) {
      m.getSelectedCols(static_cast<I>(begin), static_cast<I>(end), blocks[p],
                        -static_cast<I>(begin));
      continue;
    }
    blocks[p].create(m.getRows(), static_cast<I>(end - begin), nnz[p], Device());
    targetOf[p] = targets.size();
    targets.push_back({blocks[p].getRowPtr(), blocks[p].getColIdx(), blocks[p].getValues(), 0, 0});
  }
  if (!onHost) return blocks;

  const auto close = [](Target& out, I rows) {
    std::fill(out.row_ptr + out.rows, out.row_ptr + rows + 1, out.filled);
    out.rows = rows + 1;
  };
  for (I i = 0; i < m.getRows(); ++i) {
    for (I k = m.getRowPtr()[i]; k < m.getRowPtr()[i + 1]; ++k) {
      if (!cursor.seek(static_cast<G>(columns[k]))) continue;
      Target& out = targets[targetOf[cursor.part()]];
      if (out.rows <= i) close(out, i);
      out.col_idx[out.filled] = columns[k] - static_cast<I>(cursor.begin());
      out.values[out.filled] = m.getValues()[k];
      ++out.filled;
    }
  }
  for (Target& out : targets) close(out, m.getRows());
  return blocks;
}

}  // namespace mivo
