// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/assembly/RowAssembly.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "mivo/mat/assembly/RowMessages.hpp"
#include "mivo/utils/memory.hpp"

namespace mivo {
namespace {

// Chunks double in size; from 2 MiB up the host's memory comes in huge pages.
constexpr std::size_t kFirstChunkBytes = std::size_t(1) << 16;
constexpr std::size_t kLargestChunkBytes = std::size_t(1) << 22;

/// Rows of a matrix with global rows and columns, from row `first` on, sorted and summed where they
/// stand.
template <class T, class G, class L>
class GivenRows {
 public:
  using Entry = typename MapWithLockType<G, T>::value_type;

  GivenRows(const CSRMatrixT<T, G>& m, G first, L rows)
      : row_ptr_(m.getRowPtr()), col_idx_(m.getColIdx()), values_(m.getValues()), first_(first) {
    counts_.reserve(static_cast<std::size_t>(rows));
    for (L i = 0; i < rows; ++i) {
      const G r = first + static_cast<G>(i);
      if (m.getNnz() == 0 || r >= m.getRows() || row_ptr_[r] == row_ptr_[r + 1]) {
        counts_.push_back(0);
        continue;
      }
      G k = row_ptr_[r] + 1;
      while (k < row_ptr_[r + 1] && col_idx_[k - 1] < col_idx_[k]) ++k;
      const bool ascending = k == row_ptr_[r + 1];
      counts_.push_back(
          narrowEntryCount<L>(ascending ? static_cast<std::size_t>(k - row_ptr_[r]) : load(r)));
    }
  }
  std::size_t count(L i) const {
    return static_cast<std::size_t>(counts_[static_cast<std::size_t>(i)]);
  }
  const Entry* row(L i) {
    load(first_ + static_cast<G>(i));
    return row_.data();
  }
  void restart(bool) {}

 private:
  std::size_t load(G r) {
    const std::size_t length = static_cast<std::size_t>(row_ptr_[r + 1] - row_ptr_[r]);
    if (row_.size() < length) row_.resize(length);
    const G* const col_idx = col_idx_ + row_ptr_[r];
    const T* const values = values_ + row_ptr_[r];
    // A position starts at zero, so that a lone -0.0 is stored as 0.0.
    for (std::size_t k = 0; k < length; ++k) row_[k] = {col_idx[k], T(0) + values[k]};
    sortRow(row_.data(), length);
    return sumDuplicates(row_.data(), length);
  }

  const G* row_ptr_;
  const G* col_idx_;
  const T* values_;
  G first_;
  std::vector<L> counts_;
  std::vector<Entry> row_;
};

}  // namespace

template <class T, class G, class L>
RowAssembly<T, G, L>::Store::~Store() {
  for (const Chunk& chunk : chunks) Device().rawFree(chunk.data);
}

template <class T, class G, class L>
typename RowAssembly<T, G, L>::Entry* RowAssembly<T, G, L>::Store::grow(std::size_t used) {
  const std::size_t last = chunks.empty() ? 0 : chunks.back().capacity;
  const std::size_t common = std::min(std::max(2 * last, kFirstChunkBytes / sizeof(Entry)),
                                      kLargestChunkBytes / sizeof(Entry));
  const std::size_t capacity = std::max(common, 2 * used);
  Entry* const data = detail::allocate<Entry>(Device(), capacity, "entries of an assembly by rows");
  if (used > 0) std::memcpy(static_cast<void*>(data), end(), used * sizeof(Entry));
  if (!chunks.empty() && chunks.back().size == 0) {
    Device().rawFree(chunks.back().data);
    chunks.pop_back();
  }
  chunks.push_back({data, 0, capacity});
  return data;
}

template <class T, class G, class L>
struct RowAssembly<T, G, L>::Reader {
  Store& store;
  std::size_t chunk = 0;
  std::size_t position = 0;
  bool release = false;

  /// The next `count` entries, at least one, which are a row.
  Entry* next(std::size_t count) {
    while (position == store.chunks[chunk].size) {
      if (release) {
        Device().rawFree(store.chunks[chunk].data);
        store.chunks[chunk] = {nullptr, 0, 0};
      }
      ++chunk;
      position = 0;
    }
    Entry* const row = store.chunks[chunk].data + position;
    position += count;
    return row;
  }
  void restart(bool last) {
    chunk = 0;
    position = 0;
    release = last;
  }
};

template <class T, class G, class L>
RowAssembly<T, G, L>::RowAssembly(ParCSRMatrixT<T, G, L>& matrix) : matrix_(matrix) {
  matrix_.getOwnerShipRange(&begin_, &end_);
  counts_.resize(static_cast<std::size_t>(end_ - begin_), 0);
}

template <class T, class G, class L>
RowAssembly<T, G, L>::~RowAssembly() = default;

template <class T, class G, class L>
void RowAssembly<T, G, L>::beginRow(G row) {
  MIVO_CHECK(row > row_) << "assembly by rows: row " << row << " after row " << row_;
  closeRow();
  Store* const store = row >= begin_ && row < end_ ? &own_ : &foreign_;
  if (store != store_) {
    store_ = store;
    cursor_ = store->end();
    limit_ = store->limit();
  }
  row_start_ = cursor_;
  row_ = row;
}

template <class T, class G, class L>
void RowAssembly<T, G, L>::growRow() {
  MIVO_CHECK(store_ != nullptr) << "assembly by rows: an entry before the first row";
  const std::size_t used = static_cast<std::size_t>(cursor_ - row_start_);
  row_start_ = store_->grow(used);
  cursor_ = row_start_ + used;
  limit_ = store_->limit();
}

template <class T, class G, class L>
void RowAssembly<T, G, L>::closeRow() {
  if (cursor_ == row_start_) return;
  std::size_t count = static_cast<std::size_t>(cursor_ - row_start_);
  sortRow(row_start_, count);
  count = sumDuplicates(row_start_, count);
  cursor_ = row_start_ + count;
  row_start_ = cursor_;
  store_->chunks.back().size += count;
  if (store_ == &own_) {
    counts_[static_cast<std::size_t>(row_ - begin_)] = narrowEntryCount<L>(count);
  } else {
    foreign_rows_.push_back({row_, count});
  }
}

template <class T, class G, class L>
void RowAssembly<T, G, L>::finish() {
  closeRow();
  RowMessages<T, G> messages(matrix_.impl_->comm);
  packForeignRows(messages);
  messages.exchange();
  finish(messages);
}

template <class T, class G, class L>
void RowAssembly<T, G, L>::finish(const RowMessages<T, G>& messages) {
  closeRow();
  std::vector<Contribution> contributions = readContributions(messages);
  if (!contributions.empty()) addContributions(std::move(contributions));

  struct Source {
    const std::vector<L>& counts;
    Reader reader;
    std::size_t count(L i) const {
      return static_cast<std::size_t>(counts[static_cast<std::size_t>(i)]);
    }
    const Entry* row(L i) { return reader.next(count(i)); }
    void restart(bool last) { reader.restart(last); }
  };
  Source source{counts_, Reader{own_}};
  matrix_.takeRows(source);
}

template <class T, class G, class L>
void RowAssembly<T, G, L>::assemble(const CSRMatrixT<T, G>& m, ParCSRMatrixT<T, G, L>& matrix) {
  G begin = 0;
  G end = 0;
  matrix.getOwnerShipRange(&begin, &end);
  // A matrix without entries may have row pointers that say nothing.
  const G rows = m.getNnz() > 0 ? m.getRows() : 0;
  const G* const row_ptr = m.getRowPtr();
  RowAssembly assembly(matrix);
  const auto add = [&](G from, G to) {
    for (G i = from; i < to; ++i) {
      assembly.beginRow(i);
      for (G k = row_ptr[i]; k < row_ptr[i + 1]; ++k) {
        assembly.add(m.getColIdx()[k], m.getValues()[k]);
      }
    }
  };
  const auto hasEntries = [&](G from, G to) { return from < to && row_ptr[from] < row_ptr[to]; };
  if (hasEntries(0, std::min(begin, rows)) || hasEntries(std::min(end, rows), rows)) {
    add(0, rows);
    assembly.finish();
    return;
  }
  RowMessages<T, G> messages(matrix.impl_->comm);
  messages.open();
  messages.exchange();
  bool received = false;
  messages.forEachReceived([&](int, int, const unsigned char*) { received = true; });
  if (received) {
    add(0, rows);
    assembly.finish(messages);
    return;
  }
  // All contributions to the own rows are here: they need no store in between.
  GivenRows<T, G, L> source(m, begin, static_cast<L>(end - begin));
  matrix.takeRows(source);
}

template <class T, class G, class L>
void RowAssembly<T, G, L>::packForeignRows(RowMessages<T, G>& messages) {
  const auto& impl = *matrix_.impl_;
  std::vector<int> owners(foreign_rows_.size());
  std::vector<int> local_rows(foreign_rows_.size());
  for (std::size_t k = 0; k < foreign_rows_.size(); ++k) {
    const G row = foreign_rows_[k].row;
    L owner = -1;
    L local = 0;
    if (row >= 0 && row < impl.rows) impl.row_part.global2Local(row, owner, local);
    MIVO_CHECK(owner >= 0 && owner < static_cast<L>(messages.size()))
        << "endAssemble: row " << row << " lies outside the matrix";
    owners[k] = static_cast<int>(owner);
    local_rows[k] = static_cast<int>(local);
    messages.announce(owners[k], foreign_rows_[k].count);
  }
  messages.open();
  Reader reader{foreign_};
  reader.restart(true);
  for (std::size_t k = 0; k < foreign_rows_.size(); ++k) {
    const std::size_t count = foreign_rows_[k].count;
    messages.beginRow(owners[k], local_rows[k], count);
    const Entry* entries = reader.next(count);
    for (std::size_t e = 0; e < count; ++e) messages.add(entries[e].first, entries[e].second);
  }
}

template <class T, class G, class L>
std::vector<typename RowAssembly<T, G, L>::Contribution> RowAssembly<T, G, L>::readContributions(
    const RowMessages<T, G>& messages) const {
  std::vector<Contribution> contributions;
  messages.forEachReceived([&](int local, int count, const unsigned char* entries) {
    MIVO_CHECK(local >= 0 && static_cast<std::size_t>(local) < counts_.size())
        << "endAssemble: received row " << local << " of " << counts_.size();
    contributions.push_back({static_cast<L>(local), count, entries});
  });
  return contributions;
}

/// Contributions are added to the own rows in the order of ranks.
template <class T, class G, class L>
void RowAssembly<T, G, L>::addContributions(std::vector<Contribution> contributions) {
  std::stable_sort(contributions.begin(), contributions.end(),
                   [](const Contribution& a, const Contribution& b) { return a.row < b.row; });
  Store mine;
  std::swap(mine.chunks, own_.chunks);
  const std::vector<L> counts = counts_;
  Reader reader{mine};
  reader.restart(true);
  store_ = &own_;
  row_start_ = cursor_ = limit_ = nullptr;
  auto next = contributions.begin();
  for (std::size_t i = 0; i < counts.size(); ++i) {
    row_ = begin_ + static_cast<G>(i);
    const std::size_t count = static_cast<std::size_t>(counts[i]);
    const Entry* entries = count > 0 ? reader.next(count) : nullptr;
    for (std::size_t k = 0; k < count; ++k) add(entries[k].first, entries[k].second);
    for (; next != contributions.end() && static_cast<std::size_t>(next->row) == i; ++next) {
      const unsigned char* at = next->entries;
      for (int k = 0; k < next->count; ++k) {
        G col{};
        T value{};
        RowMessages<T, G>::readEntry(at, col, value);
        add(col, value);
      }
    }
    closeRow();
  }
}

MIVO_INSTANCE_VALUES(RowAssembly, int, int)
MIVO_INSTANCE_VALUES(RowAssembly, long, int)

}  // namespace mivo
