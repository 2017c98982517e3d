// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/RowAssembly.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "mivo/comu/serialization.hpp"
#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/ColumnBlocks.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/utils/Utils.hpp"

namespace mivo {
namespace {

// Chunks double in size; from 2 MiB up the host's memory comes in huge pages.
constexpr std::size_t kFirstChunkBytes = std::size_t(1) << 16;
constexpr std::size_t kLargestChunkBytes = std::size_t(1) << 22;

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
  Entry* const data = static_cast<Entry*>(Device().rawMalloc(capacity * sizeof(Entry)));
  MIVO_CHECK(data != nullptr) << "assembly: no memory for " << capacity << " entries";
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
struct RowAssembly<T, G, L>::Messages {
  std::vector<int> send_size;
  std::vector<int> recv_size;
  std::vector<comu::Stream> send;
  std::vector<comu::Stream> recv;
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
  auto& impl = *matrix_.impl_;
  Messages messages;
  packForeignRows(messages);
  exchangeForeignRows(messages);
  std::vector<Contribution> contributions = readContributions(messages);
  if (!contributions.empty()) addContributions(std::move(contributions));

  MIVO_LOG(3, Utils::getVerboseLevel() >= 3) << "begin coo to csr";
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
  std::vector<CSRMatrixT<T, L>> blocks =
      buildColumnBlocks<T, G, L>(impl.col_part, static_cast<L>(counts_.size()), source);
  if (impl.device.type != Device::kHost) {
    for (CSRMatrixT<T, L>& block : blocks) block = block.toDevice(impl.device);
  }
  impl.assembly.reset();
  matrix_.replaceBlocks(blocks);
}

/// A message holds the row count, then for each row its local number, its entry count and its
/// entries (column, value), without gaps. Every other rank gets one.
template <class T, class G, class L>
void RowAssembly<T, G, L>::packForeignRows(Messages& messages) {
  const auto& impl = *matrix_.impl_;
  const int rank = impl.rank();
  const std::size_t nprocs = static_cast<std::size_t>(impl.size());
  std::vector<std::size_t> bytes(nprocs, sizeof(int));
  std::vector<int> rows(nprocs, 0);
  std::vector<int> owners(foreign_rows_.size());
  std::vector<int> local_rows(foreign_rows_.size());
  for (std::size_t k = 0; k < foreign_rows_.size(); ++k) {
    const G row = foreign_rows_[k].row;
    L owner = -1;
    L local = 0;
    if (row >= 0 && row < impl.rows) impl.row_part.global2Local(row, owner, local);
    MIVO_CHECK(owner >= 0 && static_cast<std::size_t>(owner) < nprocs)
        << "endAssemble: row " << row << " lies outside the matrix";
    owners[k] = static_cast<int>(owner);
    local_rows[k] = static_cast<int>(local);
    ++rows[static_cast<std::size_t>(owner)];
    bytes[static_cast<std::size_t>(owner)] +=
        2 * sizeof(int) + foreign_rows_[k].count * (sizeof(G) + sizeof(T));
  }
  messages.send_size.assign(nprocs, 0);
  messages.recv_size.assign(nprocs, 0);
  messages.send.resize(nprocs);
  messages.recv.resize(nprocs);
  for (std::size_t p = 0; p < nprocs; ++p) {
    if (static_cast<int>(p) == rank) continue;
    messages.send_size[p] = comu::narrowToInt(bytes[p], "bytes");
    messages.send[p].setCapacity(messages.send_size[p]);
    comu::packStream(messages.send[p], rows[p]);
  }
  Reader reader{foreign_};
  reader.restart(true);
  for (std::size_t k = 0; k < foreign_rows_.size(); ++k) {
    comu::Stream& stream = messages.send[static_cast<std::size_t>(owners[k])];
    const std::size_t count = foreign_rows_[k].count;
    comu::packStream(stream, local_rows[k]);
    comu::packStream(stream, comu::narrowToInt(count, "entries"));
    const Entry* entries = reader.next(count);
    for (std::size_t e = 0; e < count; ++e) {
      comu::packStream(stream, entries[e].first);
      comu::packStream(stream, entries[e].second);
    }
  }
}

template <class T, class G, class L>
void RowAssembly<T, G, L>::exchangeForeignRows(Messages& messages) {
  const int comm = matrix_.impl_->comm;
  MPI_Alltoall(messages.send_size.data(), 1, MPI_INT, messages.recv_size.data(), 1, MPI_INT, comm);
  std::vector<MPI_Request> requests;
  requests.reserve(2 * messages.send.size());
  for (std::size_t p = 0; p < messages.send.size(); ++p) {
    const int rank = static_cast<int>(p);
    if (messages.send_size[p] > 0) {
      requests.emplace_back();
      MPI_Isend(messages.send[p].getBuffer(), messages.send_size[p], MPI_BYTE, rank, 0, comm,
                &requests.back());
    }
    if (messages.recv_size[p] > 0) {
      messages.recv[p].setCapacity(messages.recv_size[p]);
      messages.recv[p].pushBack(nullptr, messages.recv_size[p]);
      requests.emplace_back();
      MPI_Irecv(messages.recv[p].getBuffer(), messages.recv_size[p], MPI_BYTE, rank, 0, comm,
                &requests.back());
    }
  }
  std::vector<MPI_Status> statuses(requests.size());
  MPI_Waitall(static_cast<int>(requests.size()), requests.data(), statuses.data());
}

template <class T, class G, class L>
std::vector<typename RowAssembly<T, G, L>::Contribution> RowAssembly<T, G, L>::readContributions(
    const Messages& messages) const {
  std::vector<Contribution> contributions;
  for (std::size_t p = 0; p < messages.recv.size(); ++p) {
    if (messages.recv_size[p] == 0) continue;
    const unsigned char* at = messages.recv[p].getBuffer();
    const auto readInt = [&at] {
      int number = 0;
      std::memcpy(&number, at, sizeof(number));
      at += sizeof(number);
      return number;
    };
    const int rows = readInt();
    for (int k = 0; k < rows; ++k) {
      const int row = readInt();
      const int count = readInt();
      MIVO_CHECK(row >= 0 && static_cast<std::size_t>(row) < counts_.size())
          << "endAssemble: rank " << p << " sent a row of another rank";
      contributions.push_back({static_cast<L>(row), count, at});
      at += static_cast<std::size_t>(count) * (sizeof(G) + sizeof(T));
    }
  }
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
        G col;
        T value;
        std::memcpy(&col, at, sizeof(G));
        std::memcpy(static_cast<void*>(&value), at + sizeof(G), sizeof(T));
        at += sizeof(G) + sizeof(T);
        add(col, value);
      }
    }
    closeRow();
  }
}

#define MIVO_INST(T)                       \
  template class RowAssembly<T, int, int>; \
  template class RowAssembly<T, long, int>;
MIVO_INSTANTIATE_VALUES(MIVO_INST)
#undef MIVO_INST

}  // namespace mivo
