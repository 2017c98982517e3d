// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/aggregation/ParLevelTransferSmoothAggregation.hpp"

#include <iomanip>
#include <ostream>

#include "mivo/utils/Factory.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
ParLevelTransferSmoothAggregation_T<T, G, L>::ParLevelTransferSmoothAggregation_T() {
  this->default_aggregator = "AggregatorS2Greedy";
}

template <class T, class G, class L>
ParLevelTransferSmoothAggregation_T<T, G, L>::~ParLevelTransferSmoothAggregation_T() = default;

template <class T, class G, class L>
void ParLevelTransferSmoothAggregation_T<T, G, L>::transfer_operators(const Matrix& A, Matrix& P,
                                                                      Matrix& R) {
  MIVO_CHECK(this->aggregator != nullptr)
      << unknownPartText("LevelTransferSmoothAggregation", "aggregator", "aggregator_type",
                         this->aggregator_parameters);
  Matrix a = A;
  a.sortRows();
  const bool trace = Utils::getVerboseLevel() >= 3;
  MIVO_LOG(3, trace) << "Begin get the P for  Interpolator A: " << a.getRows() << "x" << a.getCols()
                     << std::endl;
  const auto diag = a.getDiag();
  typename Ops::Strength S;
  Ops::par_strength(a, diag, S, this->threshold());
  if (this->verbose) {
    const int rank = rankOf(a.getComm());
    const auto meta = S.computeMeta();
    MIVO_LOG(3, rank == 0) << std::setw(8) << "level" << meta.getTableHead();
    MIVO_LOG(3, rank == 0) << std::setw(8) << this->levelId << meta.getString();
  }
  // Collective, and so outside a line that a rank may not print.
  const G entries = a.getNnzs();
  MIVO_LOG(3, trace) << "finish strength: " << a.getRows() << " " << a.getCols() << " " << entries
                     << std::endl;

  typename Ops::Aggregates aggr;
  G naggr = 0;
  this->aggregator->aggregate(a, S, aggr, naggr);
  Matrix tentative, smoothed;
  Ops::par_tentative_prolongation(a.getRows(), naggr, aggr, tentative);
  if (this->smooth) {
    Ops::par_tentative_smooth(a, naggr, tentative, S, smoothed, this->damping());
  } else {
    smoothed = tentative;  // which nobody else holds
  }
  smoothed.sortRows();
  P = smoothed;
  R = P.transpose();
}

MIVO_INSTANCE_SCALARS(ParLevelTransferSmoothAggregation_T, long, int)
MIVO_REGISTER_SCALARS(ParLevelTransferT, "LevelTransferSmoothAggregation",
                      ParLevelTransferSmoothAggregation_T)

}  // namespace mivo
