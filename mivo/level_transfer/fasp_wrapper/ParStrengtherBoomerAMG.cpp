// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/fasp_wrapper/ParStrengtherBoomerAMG.hpp"

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
ParStrengtherBoomerAMG<T, G, L>::~ParStrengtherBoomerAMG() = default;

template <class T, class G, class L>
void ParStrengtherBoomerAMG<T, G, L>::create(const json& params) {
  readJsonKey(params, "strong_threshold", strong_threshold);
  readJsonKey(params, "max_row_sum", max_row_sum);
  readJsonKey(params, "num_functions", num_functions);
}

template <class T, class G, class L>
void ParStrengtherBoomerAMG<T, G, L>::strength(const Matrix& A, const Vector& diag, Strength& S) {
  LevelTransferOps_RS<T, G, L>::par_BoomerAMGStrength(A, diag, strong_threshold, max_row_sum,
                                                      num_functions, S);
}

MIVO_INSTANCE_SCALARS(ParStrengtherBoomerAMG, long, int)
MIVO_REGISTER_SCALARS(ParStrengtherT, "StrengtherBoomerAMG", ParStrengtherBoomerAMG)

}  // namespace mivo
