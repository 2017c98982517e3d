// SPDX-License-Identifier: Apache-2.0

// Products of two and of three distributed matrices.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/mat/products/triple_product.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {
namespace {

/// On the host, with its shape also where it has no entries.
template <class T, class I>
CSRMatrixT<T, I> shapedOnHost(const CSRMatrixT<T, I>& m) {
  if (m.getNnz() > 0) return onHost(m);
  CSRMatrixT<T, I> out;
  out.create(m.getRows(), m.getCols(), 0, Device());
  return out;
}

/// Parts of rows, by column block.
template <class T, class L>
using RowParts = std::map<int, CSRMatrixT<T, L>>;

/// The rows of B that the ghosts of a plan stand for, by owner, on the host. Collective.
template <class T, class G, class L>
std::vector<RowParts<T, L>> fetchRows(const SpMVCommPatternT<T, G, L>& plan, int comm, int rank,
                                      const RowParts<T, L>& own) {
  int nprocs = 1;
  MPI_Comm_size(comm, &nprocs);
  std::vector<RowParts<T, L>> wanted(static_cast<std::size_t>(nprocs));
  std::vector<RowParts<T, L>> received;
  plan.sendTraversal([&](int q, typename SpMVCommPatternT<T, G, L>::SpmvSendMeta* meta) {
    if (q == rank) return;
    for (const auto& entry : own) {
      CSRMatrixT<T, L> rows;
      entry.second.getSelectedRows(meta->nzc_send_indices, rows, true);
      wanted[static_cast<std::size_t>(q)][entry.first] = shapedOnHost(rows);
    }
  });
  comu::sparse_send_recv_stream(comm, wanted, received);
  return received;
}

/// Numbers for the indices of some parts in one range: this rank's first.
template <class G, class L>
class PartNumbers {
 public:
  PartNumbers(const PartitionerT<G, L>& part, int rank)
      : part_(part), first_(static_cast<std::size_t>(part.getNumParts()), L(-1)), rank_(rank) {
    if (rank < part.getNumParts()) note(rank);
  }
  void note(int p) {
    L& first = first_[static_cast<std::size_t>(p)];
    if (first >= 0) return;
    first = total_;
    const std::int64_t total = std::int64_t(total_) + sizeOf(p);
    MIVO_CHECK(total <= std::numeric_limits<L>::max())
        << "multiply: " << total << " rows of this rank and its neighbours exceed the index type";
    total_ = static_cast<L>(total);
    parts_.push_back(p);
  }
  template <class T>
  void note(const RowParts<T, L>& rows) {
    for (const auto& entry : rows) note(entry.first);
  }

  L sizeOf(int p) const { return part_.getLocalSizeForPart(static_cast<L>(p)); }
  L firstOf(int p) const { return first_[static_cast<std::size_t>(p)]; }
  L getOwn() const { return rank_ < part_.getNumParts() ? sizeOf(rank_) : 0; }
  L getTotal() const { return total_; }
  /// In the order of their numbers.
  const std::vector<int>& getParts() const { return parts_; }

 private:
  PartitionerT<G, L> part_;
  std::vector<L> first_;
  std::vector<int> parts_;
  L total_ = 0;
  int rank_;
};

/// Stacks the rows of some parts, each given by column blocks on the host, or by none.
template <class T, class G, class L>
CSRMatrixT<T, L> stackRows(const std::vector<std::pair<L, const RowParts<T, L>*>>& stack,
                           const PartNumbers<G, L>& columns) {
  std::int64_t rows = 0, nnz = 0;
  for (const auto& part : stack) {
    rows += part.first;
    for (const auto& block : *part.second) nnz += block.second.getNnz();
  }
  MIVO_CHECK(nnz <= std::numeric_limits<L>::max())
      << "multiply: " << nnz << " entries of a rank's rows exceed the index type";
  CSRMatrixT<T, L> out;
  out.create(static_cast<L>(rows), columns.getTotal(), static_cast<L>(nnz), Device());
  if (rows == 0) return out;
  L at = 0, row = 0;
  out.getRowPtr()[0] = 0;
  for (const auto& part : stack) {
    for (L i = 0; i < part.first; ++i) {
      for (const auto& entry : *part.second) {
        const CSRMatrixT<T, L>& block = entry.second;
        if (block.getNnz() == 0) continue;
        const L begin = block.getRowPtr()[i];
        const L n = block.getRowPtr()[i + 1] - begin;
        const L shift = columns.firstOf(entry.first);
        for (L k = 0; k < n; ++k) {
          out.getColIdx()[at + k] = block.getColIdx()[begin + k] + shift;
          out.getValues()[at + k] = block.getValues()[begin + k];
        }
        at += n;
      }
      out.getRowPtr()[++row] = at;
    }
  }
  return out;
}

}  // namespace

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::multiply(const ParCSRMatrixT& B, ParCSRMatrixT& C) const {
  const std::shared_ptr<ParCSRMatrixImpl> a = impl_;
  const std::shared_ptr<ParCSRMatrixImpl> b = B.impl_;
  MIVO_CHECK(a->comm == b->comm) << "A and B should have the same comm";
  MIVO_CHECK(a->device.type == b->device.type) << "A and B should on the same device";
  prepareMatVec(false);
  const int rank = a->rank();

  RowParts<T, L> ownRows;
  for (const auto& entry : b->local_blocks) {
    MIVO_CHECK(entry.second.matrix.getRows() ==
               a->col_part.getLocalSizeForPart(static_cast<L>(rank)))
        << "multiply: mat1.col1 != mat2.row2";
    ownRows[entry.first] = entry.second.matrix;
  }
  std::vector<RowParts<T, L>> received = fetchRows(a->plan, a->comm, rank, ownRows);

  // C_c = sum over p of A_p B_pc. `multiplySum` adds in the order of p, each product as a whole.
  std::vector<std::vector<std::pair<Local, Local>>> terms(
      static_cast<std::size_t>(b->col_part.getNumParts()));
  for (const auto& entry : a->local_blocks) {
    const int p = entry.first;
    const auto add = [&](int c, const Local& right) {
      terms[static_cast<std::size_t>(c)].emplace_back(entry.second.matrix, right);
    };
    if (p == rank) {
      for (const auto& own : b->local_blocks) add(own.first, own.second.matrix);
    } else {
      for (const auto& part : received[static_cast<std::size_t>(p)]) {
        add(part.first,
            a->device.type == Device::kHost ? part.second : part.second.toDevice(a->device));
      }
    }
  }
  received.clear();
  std::vector<Local> result(terms.size());
  for (std::size_t c = 0; c < terms.size(); ++c) {
    Local::multiplySum(terms[c], result[c]);
    terms[c].clear();
  }
  C.create(a->row_part, b->col_part, result, a->device, a->comm);
}

template <class T, class G, class L>
ParCSRMatrixT<T, G, L> ParCSRMatrixT<T, G, L>::multiply(const ParCSRMatrixT& B) const {
  ParCSRMatrixT C;
  multiply(B, C);
  return C;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::multiplyTriple(const ParCSRMatrixT& R, const ParCSRMatrixT& A,
                                            const ParCSRMatrixT& P, ParCSRMatrixT& C) {
  using Parts = RowParts<T, L>;
  const std::shared_ptr<ParCSRMatrixImpl> a = A.impl_;
  for (const ParCSRMatrixT* factor : {&R, &P}) {
    MIVO_CHECK(factor->impl_->comm == a->comm) << "A and B should have the same comm";
    MIVO_CHECK(factor->impl_->device.type == a->device.type) << "A and B should on the same device";
  }
  MIVO_CHECK(R.getColPartitioner() == A.getRowPartitioner() &&
             A.getColPartitioner() == P.getRowPartitioner())
      << "multiply: mat1.col1 != mat2.row2";
  const Device device = a->device;
  const int rank = a->rank();
  const auto ownParts = [](const ParCSRMatrixT& m) {
    Parts parts;
    for (const auto& entry : m.impl_->local_blocks) parts[entry.first] = entry.second.matrix;
    return parts;
  };
  const auto toHost = [](Parts parts) {
    for (auto& entry : parts) entry.second = onHost(entry.second);
    return parts;
  };
  TripleProduct<T, L> product;
  product.ownRows = a->localRows();
  std::vector<Local> result(static_cast<std::size_t>(P.getColPartitioner().getNumParts()));

  if (a->size() == 1) {
    product.R = R.getLocalMatrix(0);
    product.P = P.getLocalMatrix(0);
    const Local own = A.getLocalMatrix(0);
    if (own.getNnz() > 0) product.blocks.push_back({own, 0});
    product.ownCols = product.P.getCols();
    Local none;
    product.multiply(result[0], none);
    C.create(R.getRowPartitioner(), P.getColPartitioner(), result, device, a->comm);
    return;
  }

  // Rows of A that R names on other ranks, and then those of P that all these rows of A name.
  R.prepareMatVec(false);
  const Parts partsR = ownParts(R), partsA = ownParts(A), partsP = ownParts(P);
  const auto receivedA = fetchRows(R.impl_->plan, a->comm, rank, partsA);
  PartNumbers<G, L> rows(A.getRowPartitioner(), rank), middle(A.getColPartitioner(), rank);
  rows.note(partsR);
  middle.note(partsA);
  for (const Parts& parts : receivedA) middle.note(parts);
  std::vector<std::pair<L, const Parts*>> ghosts;
  for (const int p : rows.getParts()) {
    if (p != rank) ghosts.emplace_back(rows.sizeOf(p), &receivedA[static_cast<std::size_t>(p)]);
  }
  const Local ghostRows = stackRows<T, G, L>(ghosts, middle);

  std::vector<IndexVector> counts(static_cast<std::size_t>(A.getColPartitioner().getNumParts()));
  for (const auto& entry : partsA) {
    if (entry.first == rank) continue;
    IndexVector& count = counts[static_cast<std::size_t>(entry.first)];
    entry.second.getColElementCount(count);
    count = count.toDevice(Device());
  }
  for (const Parts& parts : receivedA) {
    for (const auto& entry : parts) {
      IndexVector& count = counts[static_cast<std::size_t>(entry.first)];
      if (entry.first == rank || entry.second.getNnz() == 0) continue;
      if (count.getSize() == 0) {
        count.create(middle.sizeOf(entry.first), 1, Device());
        count.fill(0);
      }
      for (L k = 0; k < entry.second.getNnz(); ++k) ++count.getData()[entry.second.getColIdx()[k]];
    }
  }
  Plan plan;
  for (IndexVector& count : counts) count = count.toDevice(device);
  plan.create(a->comm, device, A.getColPartitioner(), counts);
  const auto receivedP = fetchRows(plan, a->comm, rank, partsP);
  PartNumbers<G, L> coarse(P.getColPartitioner(), rank);
  coarse.note(partsP);
  for (const Parts& parts : receivedP) coarse.note(parts);

  const Parts hostR = toHost(partsR), hostP = toHost(partsP);
  std::vector<std::pair<L, const Parts*>> stackP;
  for (const int p : middle.getParts()) {
    stackP.emplace_back(middle.sizeOf(p),
                        p == rank ? &hostP : &receivedP[static_cast<std::size_t>(p)]);
  }
  product.R = stackRows<T, G, L>({{R.impl_->localRows(), &hostR}}, rows).toDevice(device);
  for (const auto& entry : partsA) {
    product.blocks.push_back({entry.second, middle.firstOf(entry.first)});
  }
  product.ghostRows = ghostRows.toDevice(device);
  product.P = stackRows<T, G, L>(stackP, coarse).toDevice(device);
  product.ownCols = coarse.getOwn();
  Local own, rest;
  product.multiply(own, rest);
  for (const int p : coarse.getParts()) {
    Local& block = result[static_cast<std::size_t>(p)];
    if (p == rank) {
      block = own;
    } else if (rest.getNnz() > 0) {
      const L begin = coarse.firstOf(p) - coarse.getOwn();
      rest.getSelectedCols(begin, begin + coarse.sizeOf(p), block, -begin);
    }
  }
  C.create(R.getRowPartitioner(), P.getColPartitioner(), result, device, a->comm);
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)

}  // namespace mivo
