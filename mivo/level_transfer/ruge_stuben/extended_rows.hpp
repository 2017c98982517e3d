// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"

namespace mivo {

/// The rows of a distributed matrix and its strength that the interpolation of this rank's rows
/// reaches: its own and those of its ghost columns. Rows and columns are numbered alike, in the
/// order of the global numbers, over all columns of these rows. On one rank these are the matrices
/// themselves. Internal. Collective.
template <class T, class G, class L>
class ExtendedRows {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;

  CSRMatrixT<T, L> a;
  CSRMatrixT<int, L> s;
  L first = 0;  ///< number of this rank's first row
  L rows = 0;   ///< of this rank

  ExtendedRows(const Matrix& A, const Strength& S)
      : rows(A.getLocalRows()), device_(A.getDevice()) {
    MPI_Comm_rank(A.getComm(), &rank_);
    MPI_Comm_size(A.getComm(), &nprocs_);
    if (nprocs_ == 1) {
      a = shaped(A.getLocalMatrix(0), rows, rows);
      s = shaped(S.getLocalMatrix(0), rows, rows);
      return;
    }
    A.prepareMatVec(false);
    const auto& plan = A.getSpMVCommPattern();
    const Device host;
    const auto ghostA = onDevice(plan.getGhostMatrix(A), host);
    const auto ghostS = onDevice(plan.getGhostMatrix(S), host);
    numberColumns(A, ghostA);
    a = onDevice(gather(A, ghostA), device_);
    s = onDevice(gather(S, ghostS), device_);
    planColumns(A);
  }

  /// Whether there are other ranks; the same on all of them.
  bool isDistributed() const { return nprocs_ > 1; }

  /// The values of all columns of a vector of which each rank has its own; the kernel's array is on
  /// the matrix's device. Collective.
  template <class U>
  MatrixT<U, L, MatrixLayoutRowMajor> exchange(const ParMatrixT<U, G, L>& own) const {
    if (nprocs_ == 1) return own.getLocalMatrix(-1);
    SpMVCommPatternT<U, G, L> plan;
    plan_.copyStructure(plan, true);
    const auto onHost = own.toDevice(Device());
    plan.exchange(onHost, nullptr, nullptr, nullptr, nullptr);
    MatrixT<U, L, MatrixLayoutRowMajor> all;
    all.create(size(), 1, Device());
    const auto mine = onHost.getLocalMatrix(-1);
    for (L i = 0; i < rows; ++i) all.getData()[first + i] = mine.getData()[i];
    plan.recvTraversal([&](int p, const auto* block) {
      if (p == rank_) return;
      for (L k = 0; k < block->host_indices.getSize(); ++k) {
        const L inBlock = block->host_indices.getData()[k];
        all.getData()[numbersOf(p)[static_cast<std::size_t>(inBlock)]] =
            block->recv_x.getData()[inBlock];
      }
    });
    return all.toDevice(device_);
  }

 private:
  /// The matrix itself where it is there already.
  template <class U>
  static CSRMatrixT<U, L> onDevice(const CSRMatrixT<U, L>& m, const Device& device) {
    return m.getDevice() == device ? m : m.toDevice(device);
  }

  /// A matrix without entries may have lost its shape.
  template <class U>
  static CSRMatrixT<U, L> shaped(const CSRMatrixT<U, L>& m, L rowCount, L colCount) {
    if (m.getNnz() > 0) return m;
    CSRMatrixT<U, L> out;
    out.create(rowCount, colCount, 0, m.getDevice());
    return out;
  }

  L size() const { return rows + static_cast<L>(ghosts_.size()); }

  /// Of the columns of another part, where it has any: -1 for those that are none of the common
  /// ones.
  std::vector<L>& numbersOf(int p) { return numbers_[static_cast<std::size_t>(p)]; }
  const std::vector<L>& numbersOf(int p) const { return numbers_[static_cast<std::size_t>(p)]; }

  /// -1 for columns that are none of the common ones.
  L numberOf(const PartitionerT<G, L>& part, G column) const {
    G begin = 0;
    const int p = ownerOf(part, column, &begin);
    const std::size_t inPart = static_cast<std::size_t>(column - begin);
    if (p == rank_) return first + static_cast<L>(inPart);
    return numbersOf(p).empty() ? -1 : numbersOf(p)[inPart];
  }

  /// The part of a column, and where that begins.
  static int ownerOf(const PartitionerT<G, L>& part, G column, G* begin) {
    const std::vector<G>& offsets = part.getOffsets();
    const auto after = std::upper_bound(offsets.begin(), offsets.end(), column);
    *begin = *(after - 1);
    return static_cast<int>(after - offsets.begin()) - 1;
  }

  void numberColumns(const Matrix& A, const CSRMatrixT<T, L>& ghost) {
    const auto& part = A.getColPartitioner();
    numbers_.resize(static_cast<std::size_t>(part.getNumParts()));
    const auto note = [&](int p, L column) {
      std::vector<L>& numbers = numbersOf(p);
      if (numbers.empty())
        numbers.resize(static_cast<std::size_t>(part.getLocalSizeForPart(p)), -1);
      numbers[static_cast<std::size_t>(column)] = 0;
    };
    for (int p = 0; p < part.getNumParts(); ++p) {
      if (p == rank_) continue;
      const auto block = onDevice(A.getLocalMatrix(p), Device());
      std::for_each(block.getColIdx(), block.getColIdx() + block.getNnz(),
                    [&](L column) { note(p, column); });
    }
    std::for_each(ghost.getColIdx(), ghost.getColIdx() + ghost.getNnz(), [&](L column) {
      G begin = 0;
      const int p = ownerOf(part, static_cast<G>(column), &begin);
      if (p != rank_) note(p, static_cast<L>(column - begin));
    });
    L next = 0;
    for (int p = 0; p < part.getNumParts(); ++p) {
      if (p == rank_) {
        first = next;
        next += rows;
      }
      G begin = 0;
      part.getOwnerShipRangeForPart(static_cast<L>(p), &begin, nullptr);
      for (L& number : numbersOf(p)) {
        if (number == 0) {
          number = next++;
          ghosts_.push_back(begin + static_cast<G>(&number - numbersOf(p).data()));
        }
      }
    }
  }

  /// This rank's rows and the ghost rows in the common numbers, on the host, without zeros of S.
  template <class U>
  CSRMatrixT<U, L> gather(const ParCSRMatrixT<U, G, L>& own, const CSRMatrixT<U, L>& ghost) const {
    const auto& part = own.getColPartitioner();
    std::vector<CSRMatrixT<U, L>> blocks(static_cast<std::size_t>(part.getNumParts()));
    L most = ghost.getNnz();
    for (std::size_t p = 0; p < blocks.size(); ++p) {
      blocks[p] = onDevice(own.getLocalMatrix(static_cast<int>(p)), Device());
      most += blocks[p].getNnz();
    }
    CSRMatrixT<U, L> out;
    out.create(size(), size(), most, Device());
    if (size() == 0) return out;
    L at = 0;
    const auto append = [&](L number, const U& value) {
      if (number < 0 || (std::is_integral_v<U> && isZero(value))) return;
      out.getColIdx()[at] = number;
      out.getValues()[at] = value;
      ++at;
    };
    out.getRowPtr()[0] = 0;
    for (L e = 0; e < size(); ++e) {
      if (e >= first && e < first + rows) {
        for (std::size_t p = 0; p < blocks.size(); ++p) {
          const auto& block = blocks[p];
          if (block.getNnz() == 0) continue;
          const L* const rowPtr = block.getRowPtr() + (e - first);
          const std::vector<L>& numbers = numbers_[p];
          for (L k = rowPtr[0]; k < rowPtr[1]; ++k) {
            const L column = block.getColIdx()[k];
            append(static_cast<int>(p) == rank_ ? first + column
                   : numbers.empty()            ? -1
                                                : numbers[static_cast<std::size_t>(column)],
                   block.getValues()[k]);
          }
        }
      } else if (ghost.getNnz() > 0) {
        const L row = static_cast<L>(ghosts_[static_cast<std::size_t>(e < first ? e : e - rows)]);
        for (L k = ghost.getRowPtr()[row]; k < ghost.getRowPtr()[row + 1]; ++k) {
          append(numberOf(part, ghost.getColIdx()[k]), ghost.getValues()[k]);
        }
      }
      out.getRowPtr()[e + 1] = at;
    }
    out.shrinkNnz(at);
    return out;
  }

  /// A plan that brings the values of all columns that are not this rank's.
  void planColumns(const Matrix& A) {
    std::vector<IndexVector> counts(numbers_.size());
    for (std::size_t p = 0; p < numbers_.size(); ++p) {
      if (numbers_[p].empty()) continue;
      counts[p].create(static_cast<int>(numbers_[p].size()), 1, Device());
      std::transform(numbers_[p].begin(), numbers_[p].end(), counts[p].getData(),
                     [](L number) { return number >= 0 ? 1 : 0; });
    }
    plan_.create(A.getComm(), Device(), A.getColPartitioner(), counts);
  }

  Device device_;
  int rank_ = 0;
  int nprocs_ = 1;
  std::vector<std::vector<L>> numbers_;  ///< by part: see numbersOf
  std::vector<G> ghosts_;                ///< columns of other ranks, ascending
  SpMVCommPatternT<int, G, L> plan_;
};

}  // namespace mivo
