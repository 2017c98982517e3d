// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/HierarchyStatistics.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/precond/ParPreconditionerAMG.hpp"

namespace mivo {
namespace {

double share(const std::vector<HierarchyStatistics::Level>& levels,
             std::int64_t HierarchyStatistics::Level::*size) {
  double all = 0;
  for (const auto& level : levels) all += static_cast<double>(level.*size);
  const double finest = levels.empty() ? 0 : static_cast<double>(levels[0].*size);
  return finest > 0 ? all / finest : 1.0;
}

/// Bytes of the arrays of this rank's blocks.
template <class T, class G, class L>
std::int64_t bytesOfBlocks(const ParCSRMatrixT<T, G, L>& m) {
  std::size_t bytes = 0;
  for (int block = 0; block < m.getColPartitioner().getNumParts(); ++block) {
    const auto local = m.getLocalMatrix(block);
    if (local.getNnz() > 0) bytes += local.getBytes();
  }
  return static_cast<std::int64_t>(bytes);
}

template <class T, class G, class L>
std::int64_t entriesOfBlocks(const ParCSRMatrixT<T, G, L>& m) {
  std::int64_t entries = 0;
  for (int block = 0; block < m.getColPartitioner().getNumParts(); ++block) {
    entries += m.getLocalMatrix(block).getNnz();
  }
  return entries;
}

/// The name of an object and, for a pair that differs, of both.
std::string nameOf(const ParOperator* first, const ParOperator* second) {
  std::string name = first != nullptr ? first->registered_name : "none";
  if (second != nullptr && second->registered_name != name) name += ", " + second->registered_name;
  return name;
}

template <class SetupTimes>
std::vector<HierarchyStatistics::Phase> phasesOf(const SetupTimes& times) {
  return {{"level transfers", times.transfer.getTimeSec()},
          {"smoothers", times.smoother.getTimeSec()},
          {"coarse operators", times.rap.getTimeSec()},
          {"exchange plans", times.prepare.getTimeSec()},
          {"coarsest level", times.coarse.getTimeSec()}};
}

/// Collects numbers of this rank and puts sums or maxima over all ranks in their place.
template <class N>
class OverRanks {
 public:
  void add(N& number) { numbers_.push_back(&number); }
  void reduce(MPI_Datatype type, MPI_Op op, int comm) {
    std::vector<N> values;
    for (const N* number : numbers_) values.push_back(*number);
    MPI_Allreduce(MPI_IN_PLACE, values.data(), static_cast<int>(values.size()), type, op, comm);
    for (std::size_t i = 0; i < values.size(); ++i) *numbers_[i] = values[i];
  }

 private:
  std::vector<N*> numbers_;
};

}  // namespace

double HierarchyStatistics::operatorComplexity() const { return share(levels, &Level::entries); }

double HierarchyStatistics::gridComplexity() const { return share(levels, &Level::rows); }

template <class T, class G, class L>
HierarchyStatistics ParPreconditionerAMG_T<T, G, L>::getStatistics() const {
  HierarchyStatistics out;
  out.cycles = step;
  if (levels.empty()) return out;
  out.setup = phasesOf(setup_times);
  out.setup_time = this->setupTime.getTimeSec();
  for (std::size_t l = 0; l < levels.size(); ++l) {
    const Level& level = levels[l];
    HierarchyStatistics::Level row;
    row.rows = level.A.getRows();
    row.entries = entriesOfBlocks(level.A);
    row.prolongation_entries = entriesOfBlocks(level.P);
    row.rows_max = level.A.getLocalRows();
    row.rows_min = -row.rows_max;
    row.matrix_bytes =
        (l > 0 ? bytesOfBlocks(level.A) : 0) + bytesOfBlocks(level.P) + bytesOfBlocks(level.R);
    row.smoother = level.coarse_solver != nullptr ? nameOf(level.coarse_solver.get(), nullptr)
                   : level.pre_smoother != nullptr
                       ? nameOf(level.pre_smoother.get(), level.post_smoother.get())
                       : nameOf(level.coarse_pre_smoother.get(), level.coarse_post_smoother.get());
    row.setup = phasesOf(level.setup_times);
    row.cycle_time = level.cycle_time.getTimeSec();
    out.levels.push_back(std::move(row));
  }

  OverRanks<std::int64_t> sums, most;
  OverRanks<double> slowest;
  for (HierarchyStatistics::Level& row : out.levels) {
    sums.add(row.entries);
    sums.add(row.prolongation_entries);
    sums.add(row.matrix_bytes);
    most.add(row.rows_min);
    most.add(row.rows_max);
    slowest.add(row.cycle_time);
    for (HierarchyStatistics::Phase& phase : row.setup) slowest.add(phase.seconds);
  }
  for (HierarchyStatistics::Phase& phase : out.setup) slowest.add(phase.seconds);
  slowest.add(out.setup_time);
  const int comm = fine.getComm();
  sums.reduce(MPI_INT64_T, MPI_SUM, comm);
  most.reduce(MPI_INT64_T, MPI_MAX, comm);
  slowest.reduce(MPI_DOUBLE, MPI_MAX, comm);
  for (HierarchyStatistics::Level& row : out.levels) {
    row.rows_min = -row.rows_min;
    out.matrix_bytes += row.matrix_bytes;
  }
  return out;
}

#define MIVO_INSTANCE(T) \
  template HierarchyStatistics ParPreconditionerAMG_T<T, long, int>::getStatistics() const;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
