// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/operators/ParLevelTransfer.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Classical coarsening (Ruge and Stueben 1987): "LevelTransferRugeStubenSeq". The first pass of
/// the classical splitting and direct interpolation, on rank 0, which is given the whole matrix; R
/// = P^T. For matrices near to M-matrices, whose strong entries are negative. The rows of P go back
/// to the ranks that own them.
///
/// Keys: "eps_strong" (0.25), share of a row's least entry from which entries are strong;
/// "do_trunc" (bool, true) and "eps_trunc" (0.2), leave out strong entries below that share of the
/// row's extreme ones and scale the others.
template <class T, class G, class L>
class MIVO_API SeqLevelTransferRugeStuben_T : public ParLevelTransferT<T, G, L> {
 public:
  using Ops = LevelTransferOps_RS<T, G, L>;
  using Matrix = ParCSRMatrixT<T, G, L>;

  /// What a transfer is made of: on rank 0 of one matrix, or of distributed ones.
  struct MIVO_API Impl {
    typename Ops::Local A;
    typename Ops::LocalStrength S;
    typename Ops::LocalMarks cf;
    G ncoarse = 0;
    typename Ops::Local P;
    Matrix parA;
    typename Ops::Strength parS;
    typename Ops::Marks parCf;
    Matrix parP;
    Matrix R;
    Matrix Ac;  ///< R A P, when it is kept
  };

  bool keep = false;         ///< keep `impl` and form the coarse operator in it
  double eps_strong = 0.25;  ///< "eps_strong"
  bool do_trunc = true;      ///< "do_trunc"
  double eps_trunc = 0.2;    ///< "eps_trunc"
  std::int32_t c_mark = 'C';
  std::int32_t f_mark = 'F';
  std::shared_ptr<Impl> impl;  ///< of the last call, when it is kept
  std::int32_t cf_init = 0;    ///< initial marks of the splitting by independent sets

  ~SeqLevelTransferRugeStuben_T() override;

  void create(const json& params);
  void transfer_operators(const Matrix& A, Matrix& P, Matrix& R) override;

 protected:
  /// Ends a call whose P is there: R, and what is kept.
  void finish(const Matrix& A, const Matrix& P, Matrix& R);
};

MIVO_EXTERN_SCALARS(SeqLevelTransferRugeStuben_T, long, int)

}  // namespace mivo
