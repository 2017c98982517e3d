// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "mivo/mat/MapWithLock.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

template <class T, class C>
class RowMessages;

/// Assembly of a distributed matrix from rows in ascending order, for callers inside the library
/// that know their rows: the fast form of `beginAssemble`, `setValue` in mode Add, `endAssemble`.
///
///     RowAssembly<T, G, L> rows(A);   // A has been created
///     for (G i = begin; i < end; ++i) {
///       rows.beginRow(i);
///       rows.add(i, 4.0);
///     }
///     rows.finish();                  // collective
///
/// Gives the same matrix to the bit, the same messages and the same collectives, without the hash
/// maps. Columns of a row come in any order, contributions to one position are added up in the
/// order given. Rows of other ranks are allowed; those of this rank are what it is quick for. One
/// thread.
template <class T, class G, class L>
class RowAssembly {
 public:
  /// The content of `matrix` is replaced in `finish`.
  explicit RowAssembly(ParCSRMatrixT<T, G, L>& matrix);
  ~RowAssembly();
  RowAssembly(const RowAssembly&) = delete;
  RowAssembly& operator=(const RowAssembly&) = delete;

  /// Assembles the rows of m, on the host, with global row and column numbers; collective. Where no
  /// rank has rows of another, they are read where they stand.
  static void assemble(const CSRMatrixT<T, G>& m, ParCSRMatrixT<T, G, L>& matrix);

  /// Rows come in strictly ascending order.
  void beginRow(G row);
  /// An entry of the row that was begun last.
  void add(G col, const T& value) {
    if (cursor_ == limit_) growRow();
    cursor_->first = col;
    // A position starts at zero, so that a lone -0.0 is stored as 0.0.
    cursor_->second = T(0) + value;
    ++cursor_;
  }
  /// Sends rows to their owners and builds the column blocks of the matrix.
  void finish();

 private:
  using Entry = typename MapWithLockType<G, T>::value_type;
  struct Chunk {
    Entry* data;
    std::size_t size;
    std::size_t capacity;
  };
  /// Entries of consecutive rows; a row never spans two chunks.
  struct Store {
    Store() = default;
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    /// More room for the open row, whose `used` entries stand behind the closed ones; gives its new
    /// place.
    Entry* grow(std::size_t used);
    Entry* end() const {
      return chunks.empty() ? nullptr : chunks.back().data + chunks.back().size;
    }
    Entry* limit() const {
      return chunks.empty() ? nullptr : chunks.back().data + chunks.back().capacity;
    }

    std::vector<Chunk> chunks;
  };
  /// Walks the rows of a store; the last walk gives back the chunks behind it.
  struct Reader;
  struct ForeignRow {
    G row;
    std::size_t count;
  };
  /// Part of an own row that another rank set, still in its message.
  struct Contribution {
    L row;
    int count;
    const unsigned char* entries;
  };

  /// Finishes after an exchange in which this rank, which has no rows of others, has sent nothing.
  void finish(const RowMessages<T, G>& messages);
  void growRow();
  void closeRow();
  void packForeignRows(RowMessages<T, G>& messages);
  std::vector<Contribution> readContributions(const RowMessages<T, G>& messages) const;
  void addContributions(std::vector<Contribution> contributions);

  ParCSRMatrixT<T, G, L>& matrix_;
  G begin_ = 0;
  G end_ = 0;
  std::vector<L> counts_;  ///< entries of each own row
  std::vector<ForeignRow> foreign_rows_;
  Store own_;
  Store foreign_;

  Store* store_ = nullptr;  ///< of the open row
  G row_ = -1;              ///< the open row
  Entry* row_start_ = nullptr;
  Entry* cursor_ = nullptr;
  Entry* limit_ = nullptr;
};

}  // namespace mivo
