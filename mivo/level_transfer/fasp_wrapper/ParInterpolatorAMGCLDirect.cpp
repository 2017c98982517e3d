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

#define MIVO_INSTANCE(T) template class ParInterpolatorAMGCLDirect<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

#define MIVO_REGISTER_TYPE(T)                                              \
  MIVO_REGISTER(ParInterpolatorT, "InterpolatorAMGCLDirect", T, long, int, \
                ParInterpolatorAMGCLDirect<T, long, int>)
MIVO_INSTANTIATE_SCALARS(MIVO_REGISTER_TYPE)
#undef MIVO_REGISTER_TYPE

}  // namespace mivo
