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

MIVO_INSTANCE_SCALARS(ParOperatorIdentityT, long, int)
MIVO_REGISTER_SCALARS(ParMatrixFreeT, "Identity", ParOperatorIdentityT)
MIVO_REGISTER_SCALARS(ParPreconditionerT, "PrecondIdentity", ParOperatorIdentityT)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverPreOnly", ParOperatorIdentityT)
MIVO_REGISTER_SCALARS(ParSmootherT, "SmootherIdentity", ParOperatorIdentityT)

}  // namespace mivo
