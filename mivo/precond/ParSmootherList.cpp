// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParSmootherList.hpp"

#include <typeinfo>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/precond/list_members.hpp"

namespace mivo {

template <class T, class G, class L>
ParSmootherList_T<T, G, L>::~ParSmootherList_T() = default;

template <class T, class G, class L>
void ParSmootherList_T<T, G, L>::create(const json& params) {
  members_ = makeListMembers<ParSmootherT<T, G, L>>(*this, params);
}

template <class T, class G, class L>
void ParSmootherList_T<T, G, L>::setup(const ParMatrixFreeT<T, G, L>& A) {
  forEachMember(members_, [&](auto& member) { member.setup(A); });
}

template <class T, class G, class L>
void ParSmootherList_T<T, G, L>::smooth(const Vector& b, Vector& x) {
  forEachMember(members_, [&](auto& member) { member.smooth(b, x); });
}

template <class T, class G, class L>
void ParSmootherList_T<T, G, L>::smoothFromZero(const Vector& b, Vector& x) {
  // A class of a program may smooth in its own way.
  if (typeid(*this) != typeid(ParSmootherList_T)) {
    return ParSmootherT<T, G, L>::smoothFromZero(b, x);
  }
  bool first = true;
  forEachMember(members_, [&](auto& member) {
    if (first) {
      member.smoothFromZero(b, x);
    } else {
      member.smooth(b, x);
    }
    first = false;
  });
  if (first) x.fill(T(0));
}

template class ParSmootherList_T<double, long, int>;
template class ParSmootherList_T<Complex<float>, long, int>;
template class ParSmootherList_T<Complex<double>, long, int>;
MIVO_REGISTER_CLASS(double, ParSmootherT, "SmootherList", ParSmootherList_T)
MIVO_REGISTER_CLASS(Complex<float>, ParSmootherT, "SmootherList", ParSmootherList_T)
MIVO_REGISTER_CLASS(Complex<double>, ParSmootherT, "SmootherList", ParSmootherList_T)

}  // namespace mivo
