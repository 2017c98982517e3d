// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "mivo/operators/ParPreconditioner.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Preconditioners one after the other, registered as "PrecondList".
///
/// Its parameters are an array of preconditioners, which may be lists. All are handed the same r
/// and the same z, with no residual formed in between: a member that starts from zero, as
/// "initial_zero" makes most do, discards what the ones before it found. An empty list leaves z as
/// it is. Members of unknown name are passed over. Collective as the members are.
template <class T, class G, class L>
class MIVO_API ParPrecondList_T : public ParPreconditionerT<T, G, L> {
 public:
  using Vector = ParMatrixT<T, G, L>;

  ~ParPrecondList_T() override;

  void create(const json& params);
  void setup(const ParMatrixFreeT<T, G, L>& A) override;
  void precondition(const Vector& r, Vector& z) override;

 private:
  std::vector<std::shared_ptr<ParPreconditionerT<T, G, L>>> members_;
};

MIVO_EXTERN_SCALARS(ParPrecondList_T, long, int)

}  // namespace mivo
