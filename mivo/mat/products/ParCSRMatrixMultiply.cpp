// SPDX-License-Identifier: Apache-2.0

// Products of two and of three distributed matrices.

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/mat/products/GhostRows.hpp"
#include "mivo/mat/products/triple_product.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::multiply(const ParCSRMatrixT& B, ParCSRMatrixT& C) const {
  const std::shared_ptr<ParCSRMatrixImpl> a = impl_;
  const std::shared_ptr<ParCSRMatrixImpl> b = B.impl_;
  MIVO_CHECK(a->comm == b->comm) << "A and B should have the same comm";
  MIVO_CHECK(a->device.type == b->device.type) << "A and B should on the same device";
  prepareMatVec(false);
  const int rank = a->rank();

  for (const auto& entry : b->local_blocks) {
    MIVO_CHECK(entry.second.matrix.getRows() ==
               a->col_part.getLocalSizeForPart(static_cast<L>(rank)))
        << "multiply: mat1.col1 != mat2.row2";
  }
  const GhostIndices<G, L> inner(*this);
  const GhostRows<T, G, L> rows(B, inner);

  // C_c = sum over p of A_p B_pc. `multiplySum` adds in the order of p, each product as a whole.
  std::vector<std::vector<std::pair<Local, Local>>> terms(
      static_cast<std::size_t>(b->col_part.getNumParts()));
  for (const auto& entry : a->local_blocks) {
    const int p = entry.first;
    const Local left = p == rank ? entry.second.matrix : inner.compact(p, entry.second.matrix);
    for (const auto& part : p == rank ? rows.own() : rows.from(p)) {
      terms[static_cast<std::size_t>(part.first)].emplace_back(left,
                                                               shapedOn(a->device, part.second));
    }
  }
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
  using Ghosts = GhostIndices<G, L>;
  const std::shared_ptr<ParCSRMatrixImpl> a = A.impl_;
  for (const ParCSRMatrixT* factor : {&R, &P}) {
    MIVO_CHECK(factor->impl_->comm == a->comm) << "A and B should have the same comm";
    MIVO_CHECK(factor->impl_->device.type == a->device.type) << "A and B should on the same device";
  }
  MIVO_CHECK(R.getColPartitioner() == A.getRowPartitioner() &&
             A.getColPartitioner() == P.getRowPartitioner())
      << "multiply: mat1.col1 != mat2.row2";

  // Rows of A that R names on other ranks, and then those of P that all these rows of A name.
  const Device device = a->device;
  const Ghosts fine(R);
  const GhostRows<T, G, L> rowsA(A, fine);
  Ghosts middle(A.getColPartitioner(), a->comm), coarse(P.getColPartitioner(), a->comm);
  rowsA.noteColumns(middle);
  middle.agree(Ghosts::Order::kOwnFirst);
  const GhostRows<T, G, L> rowsP(P, middle);
  rowsP.noteColumns(coarse);
  coarse.number(Ghosts::Order::kOwnFirst);

  TripleProduct<T, L> product;
  product.R = shapedOn(device, stackParts(ownPartsOf(R), R.getLocalRows(), fine));
  product.ownRows = fine.own();
  product.blocks = rowsA.ownPieces(middle);
  product.ghostRows = shapedOn(device, rowsA.stackGhosts(middle));
  product.P = shapedOn(device, rowsP.stack(middle, coarse));
  product.ownCols = coarse.own();
  Local own, rest;
  product.multiply(own, rest);
  std::vector<Local> result = coarse.split(rest);
  result.resize(static_cast<std::size_t>(P.getColPartitioner().getNumParts()));
  if (own.getNnz() > 0) result[static_cast<std::size_t>(coarse.rank())] = own;
  C.create(R.getRowPartitioner(), P.getColPartitioner(), result, device, a->comm);
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)

}  // namespace mivo
