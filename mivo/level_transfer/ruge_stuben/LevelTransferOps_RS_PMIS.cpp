// SPDX-License-Identifier: Apache-2.0

// The splitting by parallel modified independent sets.

#include <vector>

#include "mivo/level_transfer/ruge_stuben/HYPRERandom.hpp"
#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/mat/CrossData.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/ops/BlasOps.hpp"
#include "mivo/ops/SpLevelTransferOps.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {
namespace {

/// Random numbers for the rows of this rank: with `asOnOneRank` those that the rows have there.
template <class L>
MatrixT<double, L, MatrixLayoutRowMajor> randomWeights(int rank, long firstRow, L rows,
                                                       bool asOnOneRank) {
  if (asOnOneRank) {
    HYPRERandom::SeedRand(2747);
    HYPRERandom::skip(firstRow);
  } else {
    HYPRERandom::SeedRand(rank + 2747);
  }
  MatrixT<double, L, MatrixLayoutRowMajor> weights;
  weights.create(rows, 1, Device());
  for (L i = 0; i < rows; ++i) weights.getData()[i] = HYPRERandom::Rand();
  return weights;
}

}  // namespace

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::par_BoomerAMGCoarsenPMIS(const Matrix& A, const Strength& S,
                                                            Marks& cf, int CF_init) {
  const Device device = A.getDevice();
  const int comm = A.getComm();
  const L rows = A.getLocalRows();
  const auto& part = A.getRowPartitioner();
  const int rank = rankOf(comm);
  const bool alone = sizeOf(comm) == 1;
  // Only what travels is worth a copy of the strong entries alone.
  const Strength strong = alone ? S : S.sparsify(0);
  if (CF_init != 1) cf.create(part, device, comm);
  ParMatrixT<double, G, L> measure;
  Marks graph;
  measure.create(part, device, comm);
  graph.create(part, device, comm);
  measure.fill(0.0);
  graph.fill(0);

  // Plans for the ghosts; on one rank there are none, and nothing to exchange.
  typename Strength::Plan cfPlan, graphPlan;
  SpMVCommPatternT<double, G, L> measurePlan;
  MatrixT<COT_RawCommPattern<int, L>, L, MatrixLayoutRowMajor> cfViews, graphViews;
  MatrixT<COT_RawCommPattern<double, L>, L, MatrixLayoutRowMajor> measureViews;
  if (!alone) {
    strong.prepareMatVec(false);
    const auto& plan = strong.getSpMVCommPattern();
    plan.copyStructure(cfPlan, true);
    plan.copyStructure(graphPlan, true);
    plan.copyStructure(measurePlan, true);
    cfPlan.initReverseExchange();
    measurePlan.initReverseExchange();
    cfPlan.fill(-200);
    graphPlan.fill(-2);
    measurePlan.fill(0.0);
    cfViews = cfPlan.getRawMatOnDev();
    graphViews = graphPlan.getRawMatOnDev();
    measureViews = measurePlan.getRawMatOnDev();
  }
  const auto exchange = [alone](auto& plan, const auto& x) {
    if (!alone) plan.exchange(x, nullptr, nullptr, nullptr, nullptr);
  };
  const auto blocks = strong.getRawMatOnDev();
  CrossData<int> size(device, 0);
  PMISGraph<L> g;
  g.rank = rank;
  g.rows = rows;
  g.nblocks = blocks.getSize();
  g.blocks = blocks.getData();
  g.nviews = cfViews.getSize();
  g.cf_ghosts = cfViews.getData();
  g.measure_ghosts = measureViews.getData();
  g.graph_ghosts = graphViews.getData();
  g.cf = cf.getLocalMatrix(-1).getData();
  g.measure = measure.getLocalMatrix(-1).getData();
  g.graph = graph.getLocalMatrix(-1).getData();
  const auto step = [&](CoarsenPMISStep what) {
    SpLevelTransferOps<T, G, L>::par_boomeramg_coarsen_pmis(device, what, CF_init, g,
                                                            size.device.getData());
  };

  step(COARSEN_PMIS_STEP_MEASURE);
  if (!alone) {
    measurePlan.reverseExchange(measure, [](const double& a, const double& b) { return a + b; });
  }
  G firstRow = 0;
  A.getOwnerShipRange(&firstRow, nullptr);
  const auto weights =
      randomWeights(rank, static_cast<long>(firstRow), rows, CF_init == 2 || CF_init == 4)
          .toDevice(device);
  BlasOps<double, L>::axpy(device, rows, 1.0, weights.getData(),
                           measure.getLocalMatrix(-1).getData());
  step(COARSEN_PMIS_STEP_INITIAL);
  exchange(cfPlan, cf);
  exchange(measurePlan, measure);
  exchange(graphPlan, graph);

  for (int iter = 0;; ++iter) {
    size.toHost();
    long total = *size.host.getData();
    MPI_Allreduce(MPI_IN_PLACE, &total, 1, MPI_LONG, MPI_SUM, comm);
    if (total == 0) break;
    if (CF_init != 1 || iter > 0) {
      cfPlan.initReverseExchange();
      step(COARSEN_PMIS_STEP_INDEPENDENT_SET);
      if (!alone) {
        cfPlan.reverseExchange(cf, [](const int&, const int& b) { return b; });
      }
      exchange(cfPlan, cf);
    }
    step(COARSEN_PMIS_STEP_MARK);
    exchange(cfPlan, cf);
    step(COARSEN_PMIS_STEP_UPDATE_GRAPH);
    exchange(graphPlan, graph);
  }
}

MIVO_INSTANCE_SCALARS(LevelTransferOps_RS, long, int)

}  // namespace mivo
