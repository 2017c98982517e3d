// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/fasp_wrapper/ParSplitterBoomerAMGPMIS.hpp"

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
ParSplitterBoomerAMGPMIS<T, G, L>::~ParSplitterBoomerAMGPMIS() = default;

template <class T, class G, class L>
void ParSplitterBoomerAMGPMIS<T, G, L>::create(const json& /*params*/) {}

template <class T, class G, class L>
void ParSplitterBoomerAMGPMIS<T, G, L>::split(const Matrix& A, Strength& S, Marks& cf) {
  LevelTransferOps_RS<T, G, L>::par_BoomerAMGCoarsenPMIS(A, S, cf, CF_init);
}

MIVO_INSTANCE_SCALARS(ParSplitterBoomerAMGPMIS, long, int)
MIVO_REGISTER_SCALARS(ParSplitterT, "SplitterBoomerAMGPMIS", ParSplitterBoomerAMGPMIS)

}  // namespace mivo
