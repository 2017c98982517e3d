// SPDX-License-Identifier: Apache-2.0
#pragma once

// Rows of other ranks that this one works with, for products of matrices and for interpolation at
// distance two. Internal.

#include <cstddef>
#include <map>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"

namespace mivo {

/// Some rows by column block, those blocks with entries, on the host unless said otherwise. Columns
/// of a block begin at 0.
template <class T, class L>
using RowParts = std::map<int, CSRMatrixT<T, L>>;

/// Numbers for this rank's indices of a partition and for those of other ranks, the ghosts, that it
/// needs, with the plan that brings their values and rows. Memory is that of the ghosts, and three
/// arrays with an element a rank: nothing is as long as a part or as the whole.
template <class G, class L>
class GhostIndices {
 public:
  enum class Order { kOwnFirst, kAscending };  ///< ghosts ascend in either
  template <class U>
  using Vector = MatrixT<U, L, MatrixLayoutRowMajor>;

  /// No ghosts yet: they are to be noted, then agreed upon.
  GhostIndices(const PartitionerT<G, L>& part, int comm);
  /// The columns that products with this matrix need, from its halo plan, which is made where there
  /// is none yet; numbered behind this rank's own. Collective.
  template <class T>
  explicit GhostIndices(const ParCSRMatrixT<T, G, L>& A);

  /// Takes the columns of rows among the ghosts, but for this rank's own.
  template <class T>
  void note(const RowParts<T, L>& rows);
  /// Numbers what has been noted.
  void number(Order order);
  /// The same, and tells the owners. Collective.
  void agree(Order order);

  int rank() const { return rank_; }
  /// Whether there are other ranks; the same on all of them.
  bool isDistributed() const { return nprocs_ > 1; }
  /// This rank's indices: how many, and the number of the first.
  L own() const { return own_; }
  L first() const { return first_; }
  L ghosts() const { return static_cast<L>(starts_.back()); }
  L size() const { return own_ + ghosts(); }
  /// Of an index that its part counts from 0; -1 for one that has not been noted.
  L numberOf(int part, L index) const {
    if (part == rank_) return first_ + index;
    const Slot& slot = slots_[placeOf(beginOf(part) + static_cast<G>(index))];
    return slot.ghost < 0 ? L(-1) : numberOfGhost(slot.ghost);
  }
  L numberOfGhost(L ghost) const { return ghost < before_ ? ghost : ghost + own_; }
  /// Ghosts of a part, as their owner counts them, ascending.
  const std::vector<L>& of(int part) const { return wanted_[static_cast<std::size_t>(part)]; }
  /// Counted among the ghosts; one past the last part is their number.
  L firstGhostOf(int part) const { return static_cast<L>(starts_[static_cast<std::size_t>(part)]); }

  /// The values of all numbers, on the host, from this rank's own, there too. Collective.
  template <class U>
  Vector<U> exchange(const Vector<U>& own) const;
  /// The rows that the ghosts stand for, by rank, each in the order of `of`, from this rank's own
  /// on whatever device. Collective.
  template <class T>
  std::vector<RowParts<T, L>> fetch(const RowParts<T, L>& own) const;

  /// This rank's rows with the columns of block `part` counted as in `of`.
  template <class T>
  CSRMatrixT<T, L> compact(int part, const CSRMatrixT<T, L>& block) const;
  /// The column blocks of a matrix whose columns are the ghosts, on its device; empty where it has
  /// no entries.
  template <class T>
  std::vector<CSRMatrixT<T, L>> split(const CSRMatrixT<T, L>& m) const;

 private:
  /// A place of an open-addressed table, at most half of which are taken.
  struct Slot {
    G key = 0;
    L ghost = -1;  ///< its number among them; negative where the place is free
  };

  G beginOf(int part) const { return part_.getOffsets()[static_cast<std::size_t>(part)]; }
  /// Where the index is or would be.
  std::size_t placeOf(G index) const {
    std::size_t at = static_cast<std::size_t>(
        static_cast<unsigned long long>(index) * 0x9E3779B97F4A7C15ULL >> shift_);
    while (slots_[at].ghost >= 0 && slots_[at].key != index) at = (at + 1) & (slots_.size() - 1);
    return at;
  }
  void insert(int part, L index);

  PartitionerT<G, L> part_;
  int comm_;
  int rank_ = 0;
  int nprocs_ = 1;
  L own_ = 0;
  L first_ = 0;
  L before_ = 0;                        ///< ghosts that are numbered before this rank's own
  std::vector<std::vector<L>> wanted_;  ///< by owner
  std::vector<std::vector<L>> given_;   ///< by the rank that wants them
  std::vector<G> starts_;
  std::vector<Slot> slots_;
  std::size_t taken_ = 0;
  int shift_ = 0;
};

/// This rank's rows of a matrix, on its device.
template <class T, class G, class L>
RowParts<T, L> ownPartsOf(const ParCSRMatrixT<T, G, L>& m);

/// Some rows of this rank in the numbers of their columns: the own block itself where there is
/// nothing else, a new matrix on the host otherwise.
template <class T, class G, class L>
CSRMatrixT<T, L> stackParts(const RowParts<T, L>& parts, L rows, const GhostIndices<G, L>& columns);

/// This rank's rows of a matrix, and those of other ranks.
template <class T, class G, class L>
class GhostRows {
 public:
  using Parts = RowParts<T, L>;

  /// Brings the rows of m that the indices stand for, which must outlive this. Collective.
  GhostRows(const ParCSRMatrixT<T, G, L>& m, const GhostIndices<G, L>& rows);

  /// This rank's rows, where the matrix is.
  const Parts& own() const { return own_; }
  /// Rows of another rank, as its indices list them, on the host.
  const Parts& from(int rank) const { return received_[static_cast<std::size_t>(rank)]; }
  /// Notes the columns of all these rows.
  void noteColumns(GhostIndices<G, L>& columns) const;

  /// This rank's rows side by side in up to three pieces in the numbers of their columns: those of
  /// lower ranks, the own block, those of higher ranks.
  std::vector<CSRMatrixT<T, L>> ownPieces(const GhostIndices<G, L>& columns) const;
  /// The rows of other ranks.
  CSRMatrixT<T, L> stackGhosts(const GhostIndices<G, L>& columns) const;
  /// All rows at the numbers that `numbers` gives them; other numbers have empty rows. The own
  /// block itself where there is nothing else.
  CSRMatrixT<T, L> stack(const GhostIndices<G, L>& numbers, const GhostIndices<G, L>& columns,
                         bool dropsZeros = false) const;

 private:
  std::size_t countReceived() const;

  const GhostIndices<G, L>& rows_;
  Parts own_;
  std::vector<Parts> received_;  ///< by rank
};

/// The matrix on a device, where it keeps its shape also without entries.
template <class T, class I>
CSRMatrixT<T, I> shapedOn(const Device& device, const CSRMatrixT<T, I>& m) {
  if (m.getNnz() > 0) return m.getDevice() == device ? m : m.toDevice(device);
  CSRMatrixT<T, I> out;
  out.create(m.getRows(), m.getCols(), 0, device);
  return out;
}

}  // namespace mivo
