// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/fasp_wrapper/ParInterpolatorBoomerAMGExtendedPI.hpp"

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
ParInterpolatorBoomerAMGExtendedPI<T, G, L>::~ParInterpolatorBoomerAMGExtendedPI() = default;

template <class T, class G, class L>
void ParInterpolatorBoomerAMGExtendedPI<T, G, L>::create(const json& params) {
  readJsonKey(params, "trunc_factor", trunc_factor);
  readJsonKey(params, "p_max_elmts", p_max_elmts);
  readJsonKey(params, "num_functions", num_functions);
}

template <class T, class G, class L>
void ParInterpolatorBoomerAMGExtendedPI<T, G, L>::interpolate(const Matrix& A, const Strength& S,
                                                              const Marks& cf, G& ncoarse,
                                                              Matrix& P) {
  LevelTransferOps_RS<T, G, L>::par_BoomerAMGInterpolationExtendedPI(
      A, S, cf, num_functions, {}, trunc_factor, p_max_elmts, ncoarse, false, P);
  P.sortRows();
}

MIVO_INSTANCE_SCALARS(ParInterpolatorBoomerAMGExtendedPI, long, int)
MIVO_REGISTER_SCALARS(ParInterpolatorT, "InterpolatorBoomerAMGExtendedPI",
                      ParInterpolatorBoomerAMGExtendedPI)

}  // namespace mivo
