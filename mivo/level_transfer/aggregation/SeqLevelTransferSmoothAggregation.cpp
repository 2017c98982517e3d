// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/aggregation/SeqLevelTransferSmoothAggregation.hpp"

#include <cmath>
#include <ostream>

#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
SeqLevelTransferSmoothAggregation_T<T, G, L>::~SeqLevelTransferSmoothAggregation_T() = default;

template <class T, class G, class L>
void SeqLevelTransferSmoothAggregation_T<T, G, L>::create(const json& params) {
  readJsonKey(params, "eps_strong", eps_strong);
  readJsonKey(params, "relax", relax);
  readJsonKey(params, "block_size", block_size);
  readJsonKey(params, "smooth", smooth);
  readJsonKey(params, "verbose", verbose);
  readJsonKey(params, "aggregator", aggregator_parameters);
  if (!aggregator_parameters.contains("aggregator_type")) {
    aggregator_parameters["aggregator_type"] = default_aggregator;
  }
  aggregator = Aggregator::getFactory().createInstance(aggregator_parameters);
  this->appendChild(aggregator, "aggregator");
}

template <class T, class G, class L>
double SeqLevelTransferSmoothAggregation_T<T, G, L>::threshold() const {
  return eps_strong * std::pow(0.5, this->levelId);
}

template <class T, class G, class L>
void SeqLevelTransferSmoothAggregation_T<T, G, L>::transfer_operators(const Matrix& A, Matrix& P,
                                                                      Matrix& R) {
  const int ranks = sizeOf(A.getComm());
  MIVO_CHECK(ranks == 1) << "LevelTransferSmoothAggregationSeq works on one rank, the communicator "
                            "has "
                         << ranks << ": take LevelTransferSmoothAggregation";
  if (impl == nullptr) impl = std::make_shared<Impl>();
  Impl& work = *impl;
  work.A = A.getLocalMatrix(-1);
  work.A.sortRows();
  const auto& a = work.A;
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
      << "size " << a.getRows() << ", eps_strong " << threshold() << ", block_size  " << block_size
      << " relax " << relax << ", omega " << damping() << std::endl;

  work.D = {};
  if (a.getNnz() > 0) {
    work.D.create(a.getRows(), 1, a.getDevice());
    work.D.fill(T(0));
    SpBlasOps<T, L>::csr_diag(a.getDevice(), a.getRows(), a.getCols(), a.getRowPtr(), a.getColIdx(),
                              a.getValues(), work.D.getData(), 0, 0);
  }
  Ops::seq_strength(a, work.D, work.S, threshold());
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
      << "finish strength: " << a.getRows() << " " << a.getCols() << " " << a.getNnz() << std::endl;
  Ops::seq_aggregate(work.S, -1, work.aggregates, work.naggr);
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3) << "finish aggregate: " << work.naggr;
  Ops::seq_tentative_prolongation(a.getRows(), work.naggr, work.aggregates, work.T);
  Ops::seq_tentative_smooth(a, work.naggr, work.T, work.S, work.P, damping());
  work.P.sortRows();
  if (a.getDevice().type == Device::kHost) {
    a.check(true);
    work.T.check(true);
    work.P.check(true);
  }
  P.createSeq(work.P, A.getComm());

  if (keep) {
    // A_c = P^T (A P)
    const auto& p = work.P;
    typename Ops::Local restriction, product;
    restriction.create(p.getCols(), p.getRows(), p.getNnz(), p.getDevice());
    SpBlasOps<T, L>::csr_transpose(p.getDevice(), p.getRows(), p.getCols(), p.getRowPtr(),
                                   p.getColIdx(), p.getValues(), restriction.getRowPtr(),
                                   restriction.getColIdx(), restriction.getValues());
    a.multiply(p, product);
    restriction.multiply(product, work.Ac);
  }
  R = P.transpose();
  if (!keep) impl.reset();
}

MIVO_INSTANCE_SCALARS(SeqLevelTransferSmoothAggregation_T, long, int)
MIVO_REGISTER_SCALARS(ParLevelTransferT, "LevelTransferSmoothAggregationSeq",
                      SeqLevelTransferSmoothAggregation_T)

}  // namespace mivo
