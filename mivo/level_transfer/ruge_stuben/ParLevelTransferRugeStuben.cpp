// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/ruge_stuben/ParLevelTransferRugeStuben.hpp"

#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
ParLevelTransferRugeStuben_T<T, G, L>::ParLevelTransferRugeStuben_T() {
  this->c_mark = 1;
  this->f_mark = -1;
}

template <class T, class G, class L>
ParLevelTransferRugeStuben_T<T, G, L>::~ParLevelTransferRugeStuben_T() = default;

template <class T, class G, class L>
void ParLevelTransferRugeStuben_T<T, G, L>::transfer_operators(const Matrix& A, Matrix& P,
                                                               Matrix& R) {
  if (this->impl == nullptr) this->impl = std::make_shared<typename Base::Impl>();
  auto& work = *this->impl;
  work.parA = A;
  work.parA.sortRows();
  const auto diag = work.parA.getDiag();
  // A bound of 1 for the sums of rows switches that rule off.
  Ops::par_BoomerAMGStrength(work.parA, diag, this->eps_strong, 1.0, 1, work.parS);
  work.parS = work.parS.sparsify(0);
  Ops::par_BoomerAMGCoarsenPMIS(work.parA, work.parS, work.parCf, this->cf_init);
  Ops::par_interpolation(work.parA, work.parS, work.parCf, this->do_trunc, this->eps_trunc,
                         this->c_mark, this->f_mark, work.ncoarse, work.parP);
  work.parP.sortRows();
  P = work.parP;
  this->finish(A, P, R);
}

MIVO_INSTANCE_SCALARS(ParLevelTransferRugeStuben_T, long, int)
MIVO_REGISTER_SCALARS(ParLevelTransferT, "LevelTransferRugeStuben", ParLevelTransferRugeStuben_T)

}  // namespace mivo
