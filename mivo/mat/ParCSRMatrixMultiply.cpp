// SPDX-License-Identifier: Apache-2.0

// The product of two distributed matrices.

#include <cstddef>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
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

}  // namespace

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::multiply(const ParCSRMatrixT& B, ParCSRMatrixT& C) const {
  const std::shared_ptr<ParCSRMatrixImpl> a = impl_;
  const std::shared_ptr<ParCSRMatrixImpl> b = B.impl_;
  MIVO_CHECK(a->comm == b->comm) << "A and B should have the same comm";
  MIVO_CHECK(a->device.type == b->device.type) << "A and B should on the same device";
  prepareMatVec(false);
  const int rank = a->rank();
  const std::size_t nprocs = static_cast<std::size_t>(a->size());

  // Parts of B that each rank wants, by column block.
  using Parts = std::map<int, Local>;
  std::vector<Parts> wanted(nprocs);
  std::vector<Parts> received;
  a->plan.sendTraversal([&](int q, typename Plan::SpmvSendMeta* meta) {
    if (q == rank) return;
    for (const auto& entry : b->local_blocks) {
      const Local& block = entry.second.matrix;
      MIVO_CHECK(block.getRows() == a->col_part.getLocalSizeForPart(static_cast<L>(rank)))
          << "multiply: mat1.col1 != mat2.row2";
      Local rows;
      block.getSelectedRows(meta->nzc_send_indices, rows, true);
      wanted[static_cast<std::size_t>(q)][entry.first] = shapedOnHost(rows);
    }
  });
  comu::sparse_send_recv_stream(a->comm, wanted, received);
  wanted.clear();

  // C_c = sum over p of A_p B_pc. `multiplySum` gives what a product and a sum for each p would.
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
  const std::shared_ptr<ParCSRMatrixImpl> a = A.impl_;
  if (a->size() > 1) {
    ParCSRMatrixT left;
    R.multiply(A, left);
    left.multiply(P, C);
    return;
  }
  for (const ParCSRMatrixT* factor : {&R, &P}) {
    MIVO_CHECK(factor->impl_->comm == a->comm) << "A and B should have the same comm";
    MIVO_CHECK(factor->impl_->device.type == a->device.type) << "A and B should on the same device";
  }
  Local result;
  Local::multiplyTriple(R.getLocalMatrix(0), A.getLocalMatrix(0), P.getLocalMatrix(0), result);
  C.create(R.getRowPartitioner(), P.getColPartitioner(), {result}, a->device, a->comm);
}

#define MIVO_INST(T)                         \
  template class ParCSRMatrixT<T, int, int>; \
  template class ParCSRMatrixT<T, long, int>;
MIVO_INSTANTIATE_VALUES(MIVO_INST)
#undef MIVO_INST

}  // namespace mivo
