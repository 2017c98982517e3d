// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParPrecondList.hpp"

#include "mivo/precond/list_members.hpp"

namespace mivo {

template <class T, class G, class L>
ParPrecondList_T<T, G, L>::~ParPrecondList_T() = default;

template <class T, class G, class L>
void ParPrecondList_T<T, G, L>::create(const json& params) {
  members_ = makeListMembers<ParPreconditionerT<T, G, L>>(*this, params);
}

template <class T, class G, class L>
void ParPrecondList_T<T, G, L>::setup(const ParMatrixFreeT<T, G, L>& A) {
  this->setupTime.start();
  forEachMember(members_, [&](auto& member) { member.setup(A); });
  this->setupTime.stop();
}

template <class T, class G, class L>
void ParPrecondList_T<T, G, L>::precondition(const Vector& r, Vector& z) {
  this->precondTime.start();
  forEachMember(members_, [&](auto& member) { member.precondition(r, z); });
  this->precondTime.stop();
}

MIVO_INSTANCE_SCALARS(ParPrecondList_T, long, int)
MIVO_REGISTER_SCALARS(ParPreconditionerT, "PrecondList", ParPrecondList_T)

}  // namespace mivo
