// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>
#include <fstream>
#include <limits>
#include <new>
#include <numeric>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/text/CoordinateText.hpp"
#include "mivo/mat/text/MatrixText.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/memory.hpp"

namespace mivo {

template <class T, class I>
void CSRMatrixT<T, I>::saveToStream(std::ostream& os, int precision) const {
  MatrixTextWriter writer(os, precision, Utils::isStrictMatrixMarket());
  writer.text("%%MatrixMarket matrix coordinate ");
  writer.text(matrixFieldWord<T>());
  writer.text(" general\n");
  writer.integer(getRows());
  writer.character(' ');
  writer.integer(getCols());
  writer.character(' ');
  writer.integer(getNnz());
  writer.character('\n');
  for (I i = 0; i < getRows(); ++i) {
    for (I k = getRowPtr()[i]; k < getRowPtr()[i + 1]; ++k) {
      writer.integer(static_cast<long>(i) + 1);
      writer.character(' ');
      writer.integer(static_cast<long>(getColIdx()[k]) + 1);
      writer.character(' ');
      writer.value(getValues()[k]);
      writer.character('\n');
    }
  }
}

namespace {

/// Row count, row pointers, columns from 0 and values, one number a line.
template <class T, class I>
void writeRaw(const CSRMatrixT<T, I>& m, MatrixTextWriter& writer) {
  const auto line = [&](long number) {
    writer.integer(number);
    writer.character('\n');
  };
  line(m.getRows());
  if (m.getRows() <= 0) return;
  for (I i = 0; i <= m.getRows(); ++i) line(m.getRowPtr()[i]);
  const I nnz = m.getRowPtr()[m.getRows()];
  for (I k = 0; k < nnz; ++k) line(m.getColIdx()[k]);
  for (I k = 0; k < nnz; ++k) {
    writer.value(m.getValues()[k]);
    writer.character('\n');
  }
}

/// Entries as they stand in a file, in chunks, because nobody knows how many will come: what the
/// size line promises need not be true.
template <class T, class I>
class EntryList {
 public:
  struct Entry {
    I row;
    I col;
    T value;
  };

  EntryList() = default;
  ~EntryList() {
    for (const Chunk& chunk : chunks_) Device().rawFree(chunk.data);
  }
  EntryList(const EntryList&) = delete;
  EntryList& operator=(const EntryList&) = delete;

  void push(I row, I col, const T& value) {
    if (chunks_.empty() || chunks_.back().size == capacity_) addChunk();
    Chunk& chunk = chunks_.back();
    new (chunk.data + chunk.size) Entry{row, col, value};
    ++chunk.size;
  }

  template <class Visit>
  void forEach(const Visit& visit) const {
    for (const Chunk& chunk : chunks_) {
      for (std::size_t k = 0; k < chunk.size; ++k) visit(chunk.data[k]);
    }
  }

 private:
  static constexpr std::size_t kFirst = std::size_t(1) << 8;
  static constexpr std::size_t kLast = std::size_t(1) << 20;
  struct Chunk {
    Entry* data;
    std::size_t size;
  };

  void addChunk() {
    capacity_ = chunks_.empty() ? kFirst : std::min(2 * capacity_, kLast);
    total_ += capacity_;
    MIVO_CHECK(total_ <= static_cast<std::size_t>(std::numeric_limits<I>::max()))
        << "loadFromStream: too many entries for the index type";
    chunks_.push_back(
        {detail::allocate<Entry>(Device(), capacity_, "entries of a matrix file"), 0});
  }

  std::size_t capacity_ = 0;  ///< of the last chunk
  std::size_t total_ = 0;     ///< room of all chunks
  std::vector<Chunk> chunks_;
};

/// Sorts one row by column, stably, and keeps the last of several entries of one column; gives the
/// new length.
template <class T, class I>
class RowSorter {
 public:
  I operator()(I count, I* col_idx, T* values) {
    if (!std::is_sorted(col_idx, col_idx + count)) {
      if (count <= kShort) {
        sortShort(count, col_idx, values);
      } else {
        sortLong(count, col_idx, values);
      }
    }
    I kept = 0;
    for (I k = 0; k < count; ++k) {
      if (k + 1 < count && col_idx[k] == col_idx[k + 1]) continue;
      col_idx[kept] = col_idx[k];
      values[kept] = values[k];
      ++kept;
    }
    return kept;
  }

 private:
  static constexpr I kShort = 32;

  static void sortShort(I count, I* col_idx, T* values) {
    for (I k = 1; k < count; ++k) {
      const I col = col_idx[k];
      const T value = values[k];
      I at = k;
      for (; at > 0 && col_idx[at - 1] > col; --at) {
        col_idx[at] = col_idx[at - 1];
        values[at] = values[at - 1];
      }
      col_idx[at] = col;
      values[at] = value;
    }
  }

  void sortLong(I count, I* col_idx, T* values) {
    row_.clear();
    for (I k = 0; k < count; ++k) row_.push_back({col_idx[k], values[k]});
    std::stable_sort(row_.begin(), row_.end(),
                     [](const Entry& a, const Entry& b) { return a.col < b.col; });
    for (const Entry& entry : row_) {
      *col_idx++ = entry.col;
      *values++ = entry.value;
    }
  }

  struct Entry {
    I col;
    T value;
  };
  std::vector<Entry> row_;
};

/// Copies the first kept[i] entries of each row of `m` into a matrix that has no others.
template <class T, class I>
CSRMatrixT<T, I> compacted(const CSRMatrixT<T, I>& m, const std::vector<I>& kept) {
  CSRMatrixT<T, I> out;
  out.create(m.getRows(), m.getCols(), 0, Device());
  I* const row_ptr = out.getRowPtr();
  std::partial_sum(kept.begin(), kept.end(), row_ptr + 1);
  out.resizeNnz(row_ptr[m.getRows()], 0);
  for (I i = 0; i < m.getRows(); ++i) {
    const I from = m.getRowPtr()[i];
    const I count = kept[static_cast<std::size_t>(i)];
    std::copy_n(m.getColIdx() + from, count, out.getColIdx() + row_ptr[i]);
    std::copy_n(m.getValues() + from, count, out.getValues() + row_ptr[i]);
  }
  return out;
}

/// Sorts the rows of a matrix that was read.
template <class T, class I>
void finishRows(CSRMatrixT<T, I>& m) {
  RowSorter<T, I> sortRow;
  std::vector<I> kept(static_cast<std::size_t>(m.getRows()));
  bool repeated = false;
  for (I i = 0; i < m.getRows(); ++i) {
    const I begin = m.getRowPtr()[i];
    const I count = m.getRowPtr()[i + 1] - begin;
    const I length = sortRow(count, m.getColIdx() + begin, m.getValues() + begin);
    kept[static_cast<std::size_t>(i)] = length;
    repeated = repeated || length < count;
  }
  if (repeated) m = compacted(m, kept);
}

}  // namespace

template <class T, class I>
void CSRMatrixT<T, I>::saveToFile(const std::string& name, int precision) const {
  const std::string extension = matrixFileExtension(name);
  std::ofstream file(name);
  if (extension == "mtx") {
    saveToStream(file, precision);
  } else if (extension == "raw") {
    MatrixTextWriter writer(file, precision, Utils::isStrictMatrixMarket());
    writeRaw(*this, writer);
  }
}

template <class T, class I>
void CSRMatrixT<T, I>::loadFromStream(std::istream& is) {
  if (!is.good()) return;
  // The rows are known only by their numbers until all entries are here: they are counted on the
  // way, then each entry is put into its row. Rows outside the shape have no place in a compressed
  // matrix.
  EntryList<T, I> entries;
  I* counts = nullptr;
  const auto shape = [&](I rows, I cols) {
    create(rows, cols, 0, Device(0, 0));
    counts = rows > 0 ? getRowPtr() + 1 : nullptr;
  };
  const auto store = [&](I row, I col, const T& value) {
    if (row < 0 || row >= getRows()) return;
    entries.push(row, col, value);
    ++counts[row];
  };
  readCoordinates<T, I, I>(is, shape, store);
  if (getRows() <= 0) return;

  I* const row_ptr = getRowPtr();
  std::partial_sum(row_ptr, row_ptr + getRows() + 1, row_ptr);
  resizeNnz(row_ptr[getRows()], 0);
  I* const col_idx = getColIdx();
  T* const values = getValues();
  // The pointers serve as cursors, which leaves each at the begin of the next row.
  entries.forEach([&](const auto& entry) {
    const I at = row_ptr[entry.row]++;
    col_idx[at] = entry.col;
    values[at] = entry.value;
  });
  std::copy_backward(row_ptr, row_ptr + getRows(), row_ptr + getRows() + 1);
  row_ptr[0] = 0;
  finishRows(*this);
}

MIVO_INSTANCE_VALUES(CSRMatrixT, int)

}  // namespace mivo
