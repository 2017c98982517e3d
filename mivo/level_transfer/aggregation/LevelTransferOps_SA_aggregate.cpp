// SPDX-License-Identifier: Apache-2.0

// Aggregation on one rank and on all of them.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <numeric>
#include <vector>

#include "mivo/comu/communication_tools_impl.hpp"
#include "mivo/comu/owner_tools.hpp"
#include "mivo/level_transfer/aggregation/LevelTransferOps_SA.hpp"
#include "mivo/mat/CrossData.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/ops/SpLevelTransferOps.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {

using AggregateRecords = MatrixT<AggregateData<int>, int, MatrixLayoutRowMajor>;
MIVO_INSTANTIATE_SPARSE_SEND_RECV_STREAM(AggregateRecords)

namespace {

/// What both forms of the distributed greedy pass have in common.
template <class T, class G, class L>
class DistributedGreedy {
 public:
  using Kernels = SpLevelTransferOps<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Aggregates = ParMatrixT<int, G, L>;

  DistributedGreedy(const Strength& S, const Aggregates& aggr)
      : device(S.getDevice()),
        comm(S.getComm()),
        strength(S),
        squared(S),
        state(aggr.getLocalMatrix(-1)),
        undone(device, 0),
        next(device, 0) {
    rank = rankOf(comm);
    nprocs = sizeOf(comm);
    owner = aggr.deepCopy();
    if (nprocs > 1) {
      MIVO_LOG(3, Utils::getVerboseLevel() >= 3) << "begin generate S2";
      strength.multiply(strength, squared);
      MIVO_LOG(3, Utils::getVerboseLevel() >= 3) << "end generate S2";
    }
    squared.prepareMatVec(false);
    plan = squared.getSpMVCommPattern();
    // Columns that S has and S S has not never join.
    plan.fill(-2);
    plan.initReverseExchange();
    blocks = strength.getRawMatOnDev();
    blocks2 = squared.getRawMatOnDev();
    ghosts = plan.getRawMatOnDev();
    stack.create(state.getRows(), 1, device);
  }

  /// Calls `step(AggregateStep)`, which runs a kernel, and `transport()` until all nodes of all
  /// ranks are done.
  template <class Step, class Transport>
  void run(const Aggregates& aggr, const Step& step, const Transport& transport) {
    step(AGGREGATE_STEP_INIT);
    undone.toHost();
    MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
        << ">>>>send_data_all myrank " << rank << ", n_undone " << undoneHere() << ", rows "
        << state.getRows();
    refreshGhosts(aggr);
    long total = 0;
    do {
      if (undoneHere() != 0) {
        step(AGGREGATE_STEP_AGGREGATE);
        undone.toHost();
      }
      transport();
      total = undoneHere();
      MPI_Allreduce(MPI_IN_PLACE, &total, 1, MPI_LONG, MPI_SUM, comm);
    } while (total > 0);
  }

  int& undoneHere() { return *undone.host.getData(); }
  void refreshGhosts(const Aggregates& aggr) {
    plan.exchange(aggr, nullptr, nullptr, nullptr, nullptr);
  }
  /// For a kernel.
  AggregateNodes<L> nodes() const {
    AggregateNodes<L> v;
    v.rank = rank;
    v.rows = state.getRows();
    v.nblocks = blocks.getSize();
    v.blocks = blocks.getData();
    v.nblocks2 = blocks2.getSize();
    v.blocks2 = blocks2.getData();
    v.nghosts = ghosts.getSize();
    v.ghosts = ghosts.getData();
    v.state = state.getData();
    v.owner = owner.getLocalMatrix(-1).getData();
    v.undone = undone.device.getData();
    v.next = next.device.getData();
    v.stack = stack.getData();
    return v;
  }
  /// Elements of the plan's messages from other ranks.
  int ghostCount() const {
    int count = 0;
    plan.recvTraversal([&](int p, const auto* block) {
      if (p != rank) count += block->host_indices.getSize();
    });
    return count;
  }

  Device device;
  int comm;
  int rank = 0;
  int nprocs = 1;
  Strength strength;
  Strength squared;
  typename Strength::Plan plan;
  typename Strength::BlockTable blocks;
  typename Strength::BlockTable blocks2;
  MatrixT<COT_RawCommPattern<int, L>, L, MatrixLayoutRowMajor> ghosts;
  MatrixT<int, L, MatrixLayoutRowMajor> state;  ///< that of the nodes of this rank
  Aggregates owner;
  IndexVector stack;
  CrossData<int> undone;
  CrossData<int> next;  ///< each rank numbers its aggregates from 0
};

/// Records on their way: those for each neighbour to it, those of the neighbours to this rank.
template <class T, class G, class L>
std::vector<AggregateRecords> exchangeRecords(const DistributedGreedy<T, G, L>& greedy,
                                              const CrossData<int>& count,
                                              const AggregateRecords& records) {
  using Kernels = SpLevelTransferOps<T, G, L>;
  std::vector<AggregateRecords> outgoing(static_cast<std::size_t>(greedy.nprocs)), incoming;
  greedy.plan.recvTraversal([&](int p, const auto*) {
    if (p == greedy.rank) return;
    CrossData<int> selectedCount(greedy.device, 0);
    const auto select = [&](AggregateData<int>* selected) {
      Kernels::par_csr_aggregate_select(greedy.device, count.device.getData(), records.getData(), p,
                                        selectedCount.device.getData(), selected);
    };
    select(nullptr);
    selectedCount.toHost();
    const int n = *selectedCount.host.getData();
    if (n == 0) return;
    AggregateRecords selected;
    selected.create(n, 1, greedy.device);
    select(selected.getData());
    outgoing[static_cast<std::size_t>(p)] = selected.toDevice(Device());
  });
  comu::sparse_send_recv_stream(greedy.comm, outgoing, incoming);
  return incoming;
}

}  // namespace

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::seq_aggregate(const LocalStrength& S, int maxAggregation,
                                                 LocalAggregates& aggr, G& naggr) {
  const Device device = S.getDevice();
  const L rows = S.getRows();
  aggr.resize(rows, 1, device);
  naggr = 0;
  if (rows == 0) return;
  IndexVector count, stack;
  count.create(rows, 1, device);
  stack.create(rows, 1, device);
  CrossData<int> number(device, 0);
  SpLevelTransferOps<T, G, L>::csr_aggregate(device, S.getRawMat(), maxAggregation, count.getData(),
                                             aggr.getData(), number.device.getData(),
                                             stack.getData());
  number.toHost();
  naggr = *number.host.getData();
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::par_aggregate(const Strength& S, Aggregates& aggr, G& naggr) {
  using Kernels = SpLevelTransferOps<T, G, L>;
  aggr.create(S.getRowPartitioner(), S.getDevice(), S.getComm());
  DistributedGreedy<T, G, L> g(S, aggr);
  AggregateRecords records;
  records.create(g.ghostCount(), 1, g.device);
  CrossData<int> count(g.device, 0);
  const auto step = [&](AggregateStep what, CrossData<int>& n, AggregateRecords& list) {
    Kernels::par_csr_aggregate(g.device, what, g.nodes(), n.device.getData(), list.getData());
  };
  const auto transport = [&] {
    for (const AggregateRecords& list : exchangeRecords(g, count, records)) {
      if (list.getSize() == 0) continue;
      CrossData<int> received(g.device, list.getSize());
      AggregateRecords onDevice = list.toDevice(g.device);
      step(AGGREGATE_STEP_APPLY, received, onDevice);
    }
    g.undone.toHost();
    g.refreshGhosts(aggr);
    count = CrossData<int>(g.device, 0);
  };
  g.run(
      aggr, [&](AggregateStep what) { step(what, count, records); }, transport);
  Aggregates host = aggr.toDevice(Device());
  par_renumber(host, g.owner.toDevice(Device()), naggr);
  aggr = host.toDevice(g.device);
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::par_aggregate_comm_pattern(const Strength& S, Aggregates& aggr,
                                                              G& naggr) {
  using Kernels = SpLevelTransferOps<T, G, L>;
  aggr.create(S.getRowPartitioner(), S.getDevice(), S.getComm());
  DistributedGreedy<T, G, L> g(S, aggr);
  const auto step = [&](AggregateStep what) {
    Kernels::par_csr_aggregate_comm_pattern(g.device, what, g.nodes());
  };
  const auto second = [](const int&, const int& b) { return b; };
  const auto transport = [&] {
    g.plan.reverseExchange(aggr, g.owner, second, second);
    g.refreshGhosts(aggr);
    g.plan.initReverseExchange();
    // What arrives may take nodes that were undone, or done by now.
    const auto state = g.state.toDevice(Device());
    g.undoneHere() =
        static_cast<int>(std::count(state.getData(), state.getData() + state.getSize(), -1));
  };
  g.run(aggr, step, transport);
  Aggregates host = aggr.toDevice(Device());
  par_renumber(host, g.owner.toDevice(Device()), naggr);
  aggr = host.toDevice(g.device);
}

template <class T, class G, class L>
void LevelTransferOps_SA<T, G, L>::par_renumber(const Aggregates& aggr, const Aggregates& /*owner*/,
                                                G& naggr) {
  MIVO_CHECK(aggr.getDevice().type == Device::kHost) << "par_renumber: aggr should be on the host";
  const int comm = aggr.getComm();
  const int nprocs = sizeOf(comm);
  const auto reducer = [&](int rank, int, const std::vector<std::vector<int>>& requests,
                           std::vector<std::vector<int>>& replies) {
    std::vector<int> numbers;  // by key / nprocs, since all keys here have the same remainder
    int used = 0;
    for (std::size_t q = 0; q < requests.size(); ++q) {
      for (std::size_t k = 0; k < requests[q].size(); ++k) {
        const int key = requests[q][k];
        replies[q][k] = key;
        if (key < 0) continue;
        const std::size_t at = static_cast<std::size_t>(key / nprocs);
        if (at >= numbers.size()) numbers.resize(at + 1, -1);
        if (numbers[at] < 0) numbers[at] = used++;
        replies[q][k] = numbers[at];
      }
    }
    const long count = used;
    std::vector<long> counts(static_cast<std::size_t>(nprocs));
    MPI_Allgather(&count, 1, MPI_LONG, counts.data(), 1, MPI_LONG, comm);
    MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
        << "gather_count is " << listText(counts) << ", count is " << count;
    const long before = std::accumulate(counts.begin(), counts.begin() + rank, 0L);
    naggr = static_cast<G>(std::accumulate(counts.begin(), counts.end(), 0L));
    for (auto& reply : replies) {
      for (int& number : reply) {
        if (number >= 0) number += static_cast<int>(before);
      }
    }
  };
  const auto local = aggr.getLocalMatrix(-1);
  int none = 0;  // a null pointer would say that no rank wants answers
  int* const numbers = local.getSize() > 0 ? local.getData() : &none;
  comu::map_reduce<int, int>(
      comm, static_cast<unsigned long>(local.getSize()), numbers,
      [nprocs](const int& key) { return std::abs(key) % nprocs; }, reducer, numbers);
}

MIVO_INSTANCE_SCALARS(LevelTransferOps_SA, long, int)

}  // namespace mivo
