// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mivo/level_transfer/aggregation/LevelTransferOps_SA.hpp"
#include "mivo/operators/ParAggregator.hpp"
#include "mivo/operators/ParLevelTransfer.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

/// Coarsening by smoothed aggregation (Vanek, Mandel and Brezina 1996) on one rank:
/// "LevelTransferSmoothAggregationSeq". P = (I - omega Df^-1 Af) T with omega = 2/3 relax, where T
/// joins each aggregate of strongly connected nodes into one unknown and Af is A with its weak
/// entries added to the diagonal; R = P^T. Suits elliptic problems with one unknown per node. A
/// communicator of several ranks ends the process.
///
/// Keys: "eps_strong" (0.08), the threshold of strength on level 0, halved on each level below;
/// "relax" (1.0); "block_size" (int, 1), which is only printed; "smooth" (bool, true) and "verbose"
/// (bool, false) and "aggregator" (object), which only the distributed class uses.
///
/// Sorts the rows of A. Prints the entry count of P, and at MIVO_VERBOSE_LEVEL 3 what it does.
/// Takes one pass over A each for strength, aggregates and P, and two for the pattern of P.
template <class ValueT, class G, class L>
class MIVO_API SeqLevelTransferSmoothAggregation_T : public ParLevelTransferT<ValueT, G, L> {
 public:
  using Ops = LevelTransferOps_SA<ValueT, G, L>;
  using Matrix = ParCSRMatrixT<ValueT, G, L>;
  using Aggregator = ParAggregatorT<ValueT, G, L>;

  /// What a transfer is made of. Its T is why the value type has a longer name here.
  struct MIVO_API Impl {
    typename Ops::Local A;
    typename Ops::LocalVector D;    ///< diagonal of A
    typename Ops::LocalStrength S;  ///< strength of connection
    typename Ops::LocalAggregates aggregates;
    G naggr = 0;
    typename Ops::Local T;  ///< piecewise constant prolongation
    typename Ops::Local P;
    typename Ops::Local Ac;  ///< P^T A P, when it is kept
  };

  std::shared_ptr<Impl> impl;   ///< of the last call, when it is kept
  bool keep = false;            ///< keep `impl` and form the coarse operator in it
  double eps_strong = 0.08;     ///< "eps_strong"
  double relax = 1.0;           ///< "relax"
  std::int32_t block_size = 1;  ///< "block_size"
  bool smooth = true;           ///< "smooth"
  bool verbose = false;         ///< "verbose"
  std::shared_ptr<Aggregator> aggregator;
  json aggregator_parameters;  ///< "aggregator"
  std::string default_aggregator = "AggregatorVMBSeq";

  ~SeqLevelTransferSmoothAggregation_T() override;

  void create(const json& params);
  void transfer_operators(const Matrix& A, Matrix& P, Matrix& R) override;

 protected:
  /// The threshold on this level.
  double threshold() const;
  /// The damping of the smoothing step, with no estimate of a spectral radius.
  double damping() const { return (relax + relax) / 3.0; }
};

MIVO_EXTERN_SCALARS(SeqLevelTransferSmoothAggregation_T, long, int)

}  // namespace mivo
