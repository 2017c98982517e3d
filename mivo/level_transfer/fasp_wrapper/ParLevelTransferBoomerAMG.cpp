// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/fasp_wrapper/ParLevelTransferBoomerAMG.hpp"

#include <string>

#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {
namespace {

/// The part under `key`, of the type `name` unless its object names another. It becomes a child.
template <class Part>
std::shared_ptr<Part> createPart(ParOperator& parent, const json& params, const char* key,
                                 const char* name) {
  json chosen;
  readJsonKey(params, key, chosen);
  const std::string type = std::string(key) + "_type";
  if (!chosen.contains(type)) chosen[type] = name;
  const auto part = Part::getFactory().createInstance(chosen, &parent);
  MIVO_CHECK(part != nullptr) << unknownPartText("LevelTransferBoomerAMG", key, type, chosen);
  parent.appendChild(part, key);
  return part;
}

}  // namespace

template <class T, class G, class L>
ParLevelTransferBoomerAMG<T, G, L>::~ParLevelTransferBoomerAMG() = default;

template <class T, class G, class L>
void ParLevelTransferBoomerAMG<T, G, L>::create(const json& params) {
  strengther =
      createPart<ParStrengtherT<T, G, L>>(*this, params, "strengther", "StrengtherBoomerAMG");
  splitter = createPart<ParSplitterT<T, G, L>>(*this, params, "splitter", "SplitterBoomerAMGPMIS");
  interpolator = createPart<ParInterpolatorT<T, G, L>>(*this, params, "interpolator",
                                                       "InterpolatorBoomerAMGExtendedPI");
  readJsonKey(params, "verbose", verbose);
}

template <class T, class G, class L>
void ParLevelTransferBoomerAMG<T, G, L>::transfer_operators(const Matrix& A, Matrix& P, Matrix& R) {
  if (impl == nullptr) impl = std::make_shared<Impl>();
  Impl& work = *impl;
  work.A = A;
  work.A.sortRows();
  strength_time.start();
  strengther->strength(work.A, work.A.getDiag(), work.S);
  strength_time.stop();
  split_time.start();
  splitter->split(work.A, work.S, work.cf);
  split_time.stop();
  interp_time.start();
  interpolator->interpolate(work.A, work.S, work.cf, work.ncoarse, work.P);
  interp_time.stop();
  work.P.sortRows();
  P = work.P;
  R = P.transpose();
  if (keep) {
    work.R = R;
    Matrix::multiplyTriple(R, work.A, P, work.Ac);
  } else {
    impl.reset();
  }
  MIVO_LOG(3, verbose > 0) << "ParLevelTransferBoomerAMG timers: strength time "
                           << strength_time.getTimeSec() << " split time "
                           << split_time.getTimeSec() << " interp_time "
                           << interp_time.getTimeSec();
}

MIVO_INSTANCE_SCALARS(ParLevelTransferBoomerAMG, long, int)
MIVO_REGISTER_SCALARS(ParLevelTransferT, "LevelTransferBoomerAMG", ParLevelTransferBoomerAMG)

}  // namespace mivo
