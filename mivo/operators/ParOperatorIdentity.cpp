// SPDX-License-Identifier: Apache-2.0
#include "mivo/operators/ParOperatorIdentity.hpp"

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/communicator.hpp"

namespace mivo {

template <class T, class G, class L>
ParOperatorIdentityT<T, G, L>::~ParOperatorIdentityT() = default;

template <class T, class G, class L>
void ParOperatorIdentityT<T, G, L>::create(const json&) {}

template <class T, class G, class L>
int ParOperatorIdentityT<T, G, L>::getComm() const {
  return kCommWorld;
}

template <class T, class G, class L>
Device ParOperatorIdentityT<T, G, L>::getDevice() const {
  return Device();
}

template <class T, class G, class L>
G ParOperatorIdentityT<T, G, L>::getRows() const {
  return 0;
}

template <class T, class G, class L>
G ParOperatorIdentityT<T, G, L>::getCols() const {
  return 0;
}

template <class T, class G, class L>
void ParOperatorIdentityT<T, G, L>::aAxpby(T, const Vector& x, T, Vector& y, AsyncMatVecObject*) {
  x.deepCopy(y);
}

template <class T, class G, class L>
void ParOperatorIdentityT<T, G, L>::setup(const Operator&) {}

template <class T, class G, class L>
void ParOperatorIdentityT<T, G, L>::precondition(const Vector& r, Vector& z) {
  this->precondTime.start();
  r.deepCopy(z);
  this->precondTime.stop();
}

template <class T, class G, class L>
void ParOperatorIdentityT<T, G, L>::smooth(const Vector&, Vector&) {}

template <class T, class G, class L>
void ParOperatorIdentityT<T, G, L>::solve(Preconditioner& P, Operator&, const Vector& b, Vector& x,
                                          int&, R&) {
  P.precondition(b, x);
}

#define MIVO_INSTANCE(T) template class ParOperatorIdentityT<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

#define MIVO_REGISTER_TYPE(T)                                                                  \
  MIVO_REGISTER(ParMatrixFreeT, "Identity", T, long, int, ParOperatorIdentityT<T, long, int>)  \
  MIVO_REGISTER(ParPreconditionerT, "PrecondIdentity", T, long, int,                           \
                ParOperatorIdentityT<T, long, int>)                                            \
  MIVO_REGISTER(ParSolverT, "SolverPreOnly", T, long, int, ParOperatorIdentityT<T, long, int>) \
  MIVO_REGISTER(ParSmootherT, "SmootherIdentity", T, long, int, ParOperatorIdentityT<T, long, int>)
MIVO_INSTANTIATE_SCALARS(MIVO_REGISTER_TYPE)
#undef MIVO_REGISTER_TYPE

}  // namespace mivo
