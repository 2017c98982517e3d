// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/products/GhostRows.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "mivo/comu/communication_tools_impl.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {
namespace {

template <class L>
std::vector<L> elementsOf(const MatrixT<L, L, MatrixLayoutRowMajor>& list) {
  return std::vector<L>(list.getData(), list.getData() + list.getSize());
}

}  // namespace

template <class G, class L>
GhostIndices<G, L>::GhostIndices(const PartitionerT<G, L>& part, int comm)
    : part_(part), comm_(comm), rank_(rankOf(comm)), nprocs_(sizeOf(comm)) {
  const std::size_t count =
      static_cast<std::size_t>(std::max(nprocs_, static_cast<int>(part.getNumParts())));
  wanted_.resize(count);
  given_.resize(count);
  starts_.assign(count + 1, 0);
  if (rank_ < part.getNumParts()) own_ = part.getLocalSizeForPart(static_cast<L>(rank_));
  slots_.resize(16);
  shift_ = 60;
}

template <class G, class L>
template <class T>
GhostIndices<G, L>::GhostIndices(const ParCSRMatrixT<T, G, L>& A)
    : GhostIndices(A.getColPartitioner(), A.getComm()) {
  using Plan = SpMVCommPatternT<T, G, L>;
  if (isDistributed()) A.prepareMatVec(false);
  const Plan& plan = A.getSpMVCommPattern();
  plan.recvTraversal([&](int p, typename Plan::SpmvColBlock* block) {
    if (p == rank_) return;
    for (const L index : elementsOf(block->host_indices)) insert(p, index);
  });
  plan.sendTraversal([&](int q, typename Plan::SpmvSendMeta* meta) {
    if (q != rank_) given_[static_cast<std::size_t>(q)] = elementsOf(meta->host_indices);
  });
  number(Order::kOwnFirst);
}

template <class G, class L>
void GhostIndices<G, L>::insert(int part, L index) {
  const G key = beginOf(part) + static_cast<G>(index);
  const std::size_t at = placeOf(key);
  if (slots_[at].ghost >= 0) return;
  slots_[at] = {key, 0};
  wanted_[static_cast<std::size_t>(part)].push_back(index);
  if (2 * ++taken_ <= slots_.size()) return;
  std::vector<Slot> old(2 * slots_.size());
  old.swap(slots_);
  --shift_;
  for (const Slot& slot : old) {
    if (slot.ghost >= 0) slots_[placeOf(slot.key)] = slot;
  }
}

template <class G, class L>
template <class T>
void GhostIndices<G, L>::note(const RowParts<T, L>& rows) {
  for (const auto& entry : rows) {
    if (entry.first == rank_) continue;
    const L* const columns = entry.second.getColIdx();
    std::for_each(columns, columns + entry.second.getNnz(),
                  [&](L column) { insert(entry.first, column); });
  }
}

template <class G, class L>
void GhostIndices<G, L>::number(Order order) {
  for (std::size_t p = 0; p < wanted_.size(); ++p) {
    std::vector<L>& list = wanted_[p];
    std::sort(list.begin(), list.end());
    starts_[p + 1] = starts_[p] + static_cast<G>(list.size());
  }
  const std::int64_t total = std::int64_t(own_) + std::int64_t(starts_.back());
  MIVO_CHECK(total <= std::numeric_limits<L>::max())
      << "ghost rows: " << total << " rows of this rank and its neighbours exceed the index type";
  for (std::size_t p = 0; p < wanted_.size(); ++p) {
    L ghost = static_cast<L>(starts_[p]);
    const G begin = wanted_[p].empty() ? G(0) : beginOf(static_cast<int>(p));
    for (const L index : wanted_[p]) {
      slots_[placeOf(begin + static_cast<G>(index))].ghost = ghost++;
    }
  }
  before_ = order == Order::kAscending ? firstGhostOf(rank_) : L(0);
  first_ = before_;
}

template <class G, class L>
void GhostIndices<G, L>::agree(Order order) {
  number(order);
  comu::sparse_send_recv<L>(comm_, wanted_, given_, false);
}

template <class G, class L>
template <class U>
typename GhostIndices<G, L>::template Vector<U> GhostIndices<G, L>::exchange(
    const Vector<U>& own) const {
  std::vector<std::vector<U>> send(given_.size()), received(wanted_.size());
  for (std::size_t q = 0; q < given_.size(); ++q) {
    for (const L index : given_[q]) send[q].push_back(own.getData()[index]);
    received[q].resize(wanted_[q].size());
  }
  comu::sparse_send_recv<U>(comm_, send, received, true);
  Vector<U> all;
  all.create(size(), 1, Device());
  if (own_ > 0) std::copy_n(own.getData(), own_, all.getData() + first_);
  L ghost = 0;
  for (const std::vector<U>& values : received) {
    for (const U& value : values) all.getData()[numberOfGhost(ghost++)] = value;
  }
  return all;
}

template <class G, class L>
template <class T>
std::vector<RowParts<T, L>> GhostIndices<G, L>::fetch(const RowParts<T, L>& own) const {
  std::vector<RowParts<T, L>> asked(given_.size()), received;
  for (std::size_t q = 0; q < given_.size(); ++q) {
    if (given_[q].empty()) continue;
    Vector<L> list;
    list.create(static_cast<L>(given_[q].size()), 1, Device());
    std::copy(given_[q].begin(), given_[q].end(), list.getData());
    for (const auto& entry : own) {
      CSRMatrixT<T, L> rows;
      entry.second.getSelectedRows(list, rows, false);
      if (rows.getNnz() > 0) asked[q][entry.first] = onHost(rows);
    }
  }
  comu::sparse_send_recv_stream(comm_, asked, received);
  return received;
}

template <class G, class L>
template <class T>
CSRMatrixT<T, L> GhostIndices<G, L>::compact(int part, const CSRMatrixT<T, L>& block) const {
  const CSRMatrixT<T, L> host = onHost(block);
  CSRMatrixT<T, L> out;
  host.copyStructure(out);
  out.resize(host.getRows(), static_cast<L>(of(part).size()), out.getDevice());
  std::copy_n(host.getValues(), host.getNnz(), out.getValues());
  const L begin = numberOfGhost(firstGhostOf(part));
  std::transform(host.getColIdx(), host.getColIdx() + host.getNnz(), out.getColIdx(),
                 [&](L column) { return numberOf(part, column) - begin; });
  return shapedOn(block.getDevice(), out);
}

template <class G, class L>
template <class T>
std::vector<CSRMatrixT<T, L>> GhostIndices<G, L>::split(const CSRMatrixT<T, L>& m) const {
  if (m.getNnz() == 0) return {};
  const Device device = m.getDevice();
  PartitionerT<G, L> parts;
  parts.create(starts_.back(), starts_);
  std::vector<CSRMatrixT<T, L>> blocks = cutColumns(onHost(m), parts);
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    CSRMatrixT<T, L>& block = blocks[p];
    if (block.getNnz() == 0) continue;
    std::for_each(block.getColIdx(), block.getColIdx() + block.getNnz(),
                  [&](L& column) { column = wanted_[p][static_cast<std::size_t>(column)]; });
    block.resize(block.getRows(), part_.getLocalSizeForPart(static_cast<L>(p)), block.getDevice());
    block = shapedOn(device, block);
  }
  return blocks;
}

namespace {

/// Stacks rows in the numbers of their columns, on the host.
template <class T, class G, class L>
class RowStack {
 public:
  /// Room for `nnz` entries. Zeros may be left out where they only say that there is nothing.
  RowStack(const GhostIndices<G, L>& columns, L rows, std::size_t nnz, bool dropsZeros = false);

  /// Rows [first, last) of the parts, empty ones where there are none.
  void append(const RowParts<T, L>& parts, L first, L last);
  void appendEmpty();
  CSRMatrixT<T, L> finish();

 private:
  const GhostIndices<G, L>& columns_;
  bool dropsZeros_;
  CSRMatrixT<T, L> out_;
  L row_ = 0;
  L at_ = 0;
};

template <class T, class G, class L>
RowStack<T, G, L>::RowStack(const GhostIndices<G, L>& columns, L rows, std::size_t nnz,
                            bool dropsZeros)
    : columns_(columns), dropsZeros_(dropsZeros) {
  MIVO_CHECK(nnz <= static_cast<std::size_t>(std::numeric_limits<L>::max()))
      << "ghost rows: " << nnz << " entries of a rank's rows exceed the index type";
  out_.create(rows, columns.size(), static_cast<L>(nnz), Device());
  if (rows > 0) out_.getRowPtr()[0] = 0;
}

template <class T, class G, class L>
void RowStack<T, G, L>::append(const RowParts<T, L>& parts, L first, L last) {
  L* const rowPtr = out_.getRowPtr();
  L* const colIdx = out_.getColIdx();
  T* const values = out_.getValues();
  for (L i = first; i < last; ++i) {
    for (const auto& entry : parts) {
      const L* const columns = entry.second.getColIdx();
      const T* const entries = entry.second.getValues();
      const L end = entry.second.getRowPtr()[i + 1];
      for (L k = entry.second.getRowPtr()[i]; k < end; ++k) {
        const L number = columns_.numberOf(entry.first, columns[k]);
        if (number < 0 || (dropsZeros_ && isZero(entries[k]))) continue;
        colIdx[at_] = number;
        values[at_] = entries[k];
        ++at_;
      }
    }
    rowPtr[++row_] = at_;
  }
}

template <class T, class G, class L>
void RowStack<T, G, L>::appendEmpty() {
  out_.getRowPtr()[++row_] = at_;
}

template <class T, class G, class L>
CSRMatrixT<T, L> RowStack<T, G, L>::finish() {
  out_.shrinkNnz(at_);
  return out_;
}

template <class T, class L>
std::size_t countEntries(const RowParts<T, L>& parts) {
  std::size_t nnz = 0;
  for (const auto& part : parts) nnz += static_cast<std::size_t>(part.second.getNnz());
  return nnz;
}

template <class T, class L>
RowParts<T, L> partsOnHost(RowParts<T, L> parts) {
  for (auto& part : parts) part.second = onHost(part.second);
  return parts;
}

}  // namespace

template <class T, class G, class L>
RowParts<T, L> ownPartsOf(const ParCSRMatrixT<T, G, L>& m) {
  RowParts<T, L> parts;
  for (int p = 0; p < m.getColPartitioner().getNumParts(); ++p) {
    const CSRMatrixT<T, L> block = m.getLocalMatrix(p);
    if (block.getNnz() > 0) parts[p] = block;
  }
  return parts;
}

template <class T, class G, class L>
CSRMatrixT<T, L> stackParts(const RowParts<T, L>& parts, L rows,
                            const GhostIndices<G, L>& columns) {
  if (parts.size() == 1 && parts.begin()->first == columns.rank() && columns.first() == 0) {
    return parts.begin()->second;
  }
  RowStack<T, G, L> out(columns, rows, countEntries(parts));
  out.append(partsOnHost(parts), 0, rows);
  return out.finish();
}

template <class T, class G, class L>
GhostRows<T, G, L>::GhostRows(const ParCSRMatrixT<T, G, L>& m, const GhostIndices<G, L>& rows)
    : rows_(rows), own_(ownPartsOf(m)), received_(rows.fetch(own_)) {}

template <class T, class G, class L>
void GhostRows<T, G, L>::noteColumns(GhostIndices<G, L>& columns) const {
  Parts others = own_;
  others.erase(rows_.rank());
  columns.note(partsOnHost(others));
  for (const Parts& parts : received_) columns.note(parts);
}

template <class T, class G, class L>
std::size_t GhostRows<T, G, L>::countReceived() const {
  std::size_t nnz = 0;
  for (const Parts& parts : received_) nnz += countEntries(parts);
  return nnz;
}

template <class T, class G, class L>
std::vector<CSRMatrixT<T, L>> GhostRows<T, G, L>::ownPieces(
    const GhostIndices<G, L>& columns) const {
  std::vector<CSRMatrixT<T, L>> pieces;
  const auto at = own_.lower_bound(rows_.rank()), behind = own_.upper_bound(rows_.rank());
  for (const Parts& parts :
       {Parts(own_.begin(), at), Parts(at, behind), Parts(behind, own_.end())}) {
    if (parts.empty()) continue;
    const CSRMatrixT<T, L>& any = parts.begin()->second;
    pieces.push_back(shapedOn(any.getDevice(), stackParts(parts, any.getRows(), columns)));
  }
  return pieces;
}

template <class T, class G, class L>
CSRMatrixT<T, L> GhostRows<T, G, L>::stackGhosts(const GhostIndices<G, L>& columns) const {
  RowStack<T, G, L> out(columns, rows_.ghosts(), countReceived());
  for (int p = 0; p < static_cast<int>(received_.size()); ++p) {
    out.append(from(p), 0, static_cast<L>(rows_.of(p).size()));
  }
  return out.finish();
}

template <class T, class G, class L>
CSRMatrixT<T, L> GhostRows<T, G, L>::stack(const GhostIndices<G, L>& numbers,
                                           const GhostIndices<G, L>& columns,
                                           bool dropsZeros) const {
  if (numbers.ghosts() == 0) return stackParts(own_, numbers.own(), columns);
  const Parts own = partsOnHost(own_);
  RowStack<T, G, L> out(columns, numbers.size(), countEntries(own) + countReceived(), dropsZeros);
  const bool ownFirst = numbers.first() == 0;
  if (ownFirst) out.append(own, 0, numbers.own());
  for (int p = 0; p < static_cast<int>(received_.size()); ++p) {
    if (p == rows_.rank() && !ownFirst) out.append(own, 0, numbers.own());
    // The fetched rows of a part are among its numbered ones, in the same order.
    const std::vector<L>& fetched = rows_.of(p);
    std::size_t next = 0;
    for (const L index : numbers.of(p)) {
      if (next < fetched.size() && fetched[next] == index) {
        const L row = static_cast<L>(next++);
        out.append(from(p), row, row + 1);
      } else {
        out.appendEmpty();
      }
    }
  }
  return out.finish();
}

#define MIVO_OF_INDICES(T, G)                                                                      \
  template GhostIndices<G, int>::GhostIndices(const ParCSRMatrixT<T, G, int>&);                    \
  template void GhostIndices<G, int>::note(const RowParts<T, int>&);                               \
  template GhostIndices<G, int>::Vector<T> GhostIndices<G, int>::exchange(const Vector<T>&) const; \
  template std::vector<RowParts<T, int>> GhostIndices<G, int>::fetch(const RowParts<T, int>&)      \
      const;                                                                                       \
  template CSRMatrixT<T, int> GhostIndices<G, int>::compact(int, const CSRMatrixT<T, int>&) const; \
  template std::vector<CSRMatrixT<T, int>> GhostIndices<G, int>::split(const CSRMatrixT<T, int>&)  \
      const;                                                                                       \
  template RowParts<T, int> ownPartsOf(const ParCSRMatrixT<T, G, int>&);                           \
  template CSRMatrixT<T, int> stackParts(const RowParts<T, int>&, int, const GhostIndices<G, int>&);
template class GhostIndices<int, int>;
template class GhostIndices<long, int>;
MIVO_INSTANCE_VALUES(GhostRows, int, int)
MIVO_INSTANCE_VALUES(GhostRows, long, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_OF_INDICES, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_OF_INDICES, long)
#undef MIVO_OF_INDICES

}  // namespace mivo
