// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/fasp_wrapper/ParInterpolatorAMGCLDirect.hpp"

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
ParInterpolatorAMGCLDirect<T, G, L>::~ParInterpolatorAMGCLDirect() = default;

template <class T, class G, class L>
void ParInterpolatorAMGCLDirect<T, G, L>::create(const json& params) {
  readJsonKey(params, "trunc_factor", eps_trunc);
}

template <class T, class G, class L>
void ParInterpolatorAMGCLDirect<T, G, L>::interpolate(const Matrix& A, const Strength& S,
                                                      const Marks& cf, G& ncoarse, Matrix& P) {
  LevelTransferOps_RS<T, G, L>::par_interpolation(A, S, cf, do_trunc, eps_trunc, c_mark, f_mark,
                                                  ncoarse, P);
}

MIVO_INSTANCE_SCALARS(ParInterpolatorAMGCLDirect, long, int)
MIVO_REGISTER_SCALARS(ParInterpolatorT, "InterpolatorAMGCLDirect", ParInterpolatorAMGCLDirect)

}  // namespace mivo
