// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/aggregation/SeqFASPAggregator.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "mivo/level_transfer/aggregation/gathered_strength.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {
namespace {

/// The three passes. States: -2 undecided, -1 alone, else the aggregate.
class ThreePasses {
 public:
  ThreePasses(const CSRMatrixT<int, int>& strength, int limit)
      : s(strength.getRawMat()),
        limit_(limit),
        state(static_cast<std::size_t>(s.rows), -2),
        left_(s.rows) {}

  void run() {
    seedApart();
    joinNeighbours();
    while (left_ > 0) {
      for (int i = 0; i < s.rows; ++i) {
        if (at(i) == -2) seed(i);
      }
    }
  }

  /// Nodes without an aggregate near them become seeds.
  void seedApart() {
    for (int i = 0; i < s.rows; ++i) {
      int strong = 0;
      bool taken = false;
      forStrong(i, [&](int j) {
        ++strong;
        taken = taken || at(j) >= -1;
      });
      // A node's own state is not asked, so that it may be counted out twice.
      if (s.row_begin[i] == s.row_end[i] || strong == 1) {
        at(i) = -1;
        --left_;
      } else if (!taken) {
        seed(i);
      }
    }
  }

  /// Undecided nodes join the first aggregate near them, as it was before, that has room.
  void joinNeighbours() {
    const std::vector<int> frozen = state;
    std::vector<int> size(static_cast<std::size_t>(count), 0);
    for (const int a : frozen) {
      if (a >= 0) ++size[static_cast<std::size_t>(a)];
    }
    for (int i = 0; i < s.rows; ++i) {
      if (at(i) != -2) continue;
      forStrong(i, [&](int j) {
        const int a = frozen[static_cast<std::size_t>(j)];
        if (at(i) != -2 || a < 0 || size[static_cast<std::size_t>(a)] >= limit_) return;
        at(i) = a;
        --left_;
        ++size[static_cast<std::size_t>(a)];
      });
    }
  }

  std::vector<int>& states() { return state; }
  int aggregates() const { return count; }

 private:
  int& at(int i) { return state[static_cast<std::size_t>(i)]; }

  template <class Visit>
  void forStrong(int i, const Visit& visit) const {
    for (int k = s.row_begin[i]; k < s.row_end[i]; ++k) {
      if (s.values[k] != 0) visit(s.col_idx[k]);
    }
  }

  /// A new aggregate of node i and its undecided neighbours.
  void seed(int i) {
    at(i) = count;
    --left_;
    int size = 1;
    forStrong(i, [&](int j) {
      if (j == i || size >= limit_ || at(j) != -2) return;
      at(j) = count;
      --left_;
      ++size;
    });
    ++count;
  }

  COT_CSRRawMat<int, int> s;
  int limit_;
  std::vector<int> state;
  int left_;
  int count = 0;
};

}  // namespace

template <class T, class G, class L>
SeqFASPAggregator_T<T, G, L>::SeqFASPAggregator_T() {
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
      << "SeqFASPAggregator_T max_aggregation " << max_aggregation;
}

template <class T, class G, class L>
SeqFASPAggregator_T<T, G, L>::~SeqFASPAggregator_T() = default;

template <class T, class G, class L>
void SeqFASPAggregator_T<T, G, L>::create(const json& params) {
  readJsonKey(params, "max_aggregation", max_aggregation);
}

template <class T, class G, class L>
void SeqFASPAggregator_T<T, G, L>::aggregate(const Matrix& A, const Strength& S, Aggregates& aggr,
                                             G& naggr) {
  const auto strength = gatherStrength(S);
  // Nobody asks for the values of A, but its gathering is part of the messages.
  const int nprocs = sizeOf(S.getComm());
  if (nprocs > 1) A.gather(0);
  MatrixT<int, L, MatrixLayoutRowMajor> whole;
  naggr = 0;
  const int rank = rankOf(S.getComm());
  if (rank == 0) {
    CSRMatrixT<int, L> onHost;
    if (strength.getNnz() > 0) {
      onHost = strength.toDevice(Device());
    } else {
      onHost.create(strength.getRows(), strength.getCols(), 0, Device());
    }
    ThreePasses passes(onHost, max_aggregation);
    passes.run();
    naggr = passes.aggregates();
    MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
        << "naggr " << naggr << ", aggr " << listText(passes.states());
    whole.create(static_cast<L>(passes.states().size()), 1, Device());
    std::copy(passes.states().begin(), passes.states().end(), whole.getData());
  }
  scatterAggregates(S, whole, aggr, naggr);
}

MIVO_INSTANCE_SCALARS(SeqFASPAggregator_T, long, int)
MIVO_REGISTER_SCALARS(ParAggregatorT, "AggregatorFASPSeq", SeqFASPAggregator_T)

}  // namespace mivo
