// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include "mivo/comu/message_type.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/ops/BlasOps.hpp"

namespace mivo {
namespace {

template <class T>
void reduceInPlace(T& value, MPI_Op op, int comm) {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, comu::messageType<T>(), op, comm);
}

/// Bodies of user-defined reductions over ranks. `first` comes from the lower ranks and stays on a
/// tie.
template <class T>
void minByReal(void* first, void* second, int* count, MPI_Datatype*) {
  const T* a = static_cast<const T*>(first);
  T* b = static_cast<T*>(second);
  for (int k = 0; k < *count; ++k) {
    if (!lessByReal(b[k], a[k])) b[k] = a[k];
  }
}

template <class T>
void maxByReal(void* first, void* second, int* count, MPI_Datatype*) {
  const T* a = static_cast<const T*>(first);
  T* b = static_cast<T*>(second);
  for (int k = 0; k < *count; ++k) {
    if (!lessByReal(a[k], b[k])) b[k] = a[k];
  }
}

/// The built-in minimum and maximum refuse complex types.
template <class T>
void reduceExtremum(T& value, MPI_Op builtin, MPI_User_function* byReal, int comm) {
  if constexpr (kIsComplex<T>) {
    MPI_Op op = builtin;
    MPI_Op_create(byReal, 0, &op);
    reduceInPlace(value, op, comm);
    MPI_Op_free(&op);
  } else {
    (void)byReal;
    reduceInPlace(value, builtin, comm);
  }
}

}  // namespace

template <class T, class G, class L>
void ParMatrixT<T, G, L>::fill(T v) {
  impl_->local.fill(v);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::scale(T a, ParMatrixT& x) {
  const Local& local = x.impl_->local;
  BlasOps<T, L>::scal(local.getDevice(), local.getSize(), a, local.getData());
}

template <class T, class G, class L>
ParMatrixT<T, G, L>& ParMatrixT<T, G, L>::operator*=(const T& a) {
  scale(a, *this);
  return *this;
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::reciprocal(T a, ParMatrixT& x) {
  const Local& local = x.impl_->local;
  BlasOps<T, L>::reciprocal(local.getDevice(), local.getSize(), a, local.getData());
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::pow(T a, ParMatrixT& x) {
  const Local& local = x.impl_->local;
  BlasOps<T, L>::pow(local.getDevice(), local.getSize(), a, local.getData());
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::axpy(T a, const ParMatrixT& x, ParMatrixT& y) {
  Local::axpy(a, x.impl_->local, y.impl_->local);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::axpby(T a, const ParMatrixT& x, T b, ParMatrixT& y) {
  Local::axpby(a, x.impl_->local, b, y.impl_->local);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::axpbypz(T a, const ParMatrixT& x, T b, const ParMatrixT& y,
                                  ParMatrixT& z) {
  Local::axpbypz(a, x.impl_->local, b, y.impl_->local, z.impl_->local);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::axypbz(T a, const ParMatrixT& x, const ParMatrixT& y, T b,
                                 ParMatrixT& z) {
  Local::axypbz(a, x.impl_->local, y.impl_->local, b, z.impl_->local);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::axpbypcz(T a, const ParMatrixT& x, T b, const ParMatrixT& y, T c,
                                   ParMatrixT& z) {
  Local::axpbypcz(a, x.impl_->local, b, y.impl_->local, c, z.impl_->local);
}

template <class T, class G, class L>
T ParMatrixT<T, G, L>::dot(const ParMatrixT& x, const ParMatrixT& y) {
  T sum = Local::dot(x.impl_->local, y.impl_->local);
  reduceInPlace(sum, MPI_SUM, x.getComm());
  return sum;
}

template <class T, class G, class L>
RealType<T> ParMatrixT<T, G, L>::absSum(const ParMatrixT& x, R p) {
  const Local& local = x.impl_->local;
  R sum = BlasOps<T, L>::abs_sum(local.getDevice(), local.getSize(), local.getData(), p);
  reduceInPlace(sum, MPI_SUM, x.getComm());
  return sum;
}

template <class T, class G, class L>
RealType<T> ParMatrixT<T, G, L>::normL2(const ParMatrixT& x) {
  return static_cast<R>(std::sqrt(absSum(x, R(2))));
}

template <class T, class G, class L>
RealType<T> ParMatrixT<T, G, L>::normL1(const ParMatrixT& x) {
  return absSum(x, R(1));
}

template <class T, class G, class L>
RealType<T> ParMatrixT<T, G, L>::absMax(const ParMatrixT& x) {
  const Local& local = x.impl_->local;
  R largest = BlasOps<T, L>::abs_max(local.getDevice(), local.getSize(), local.getData());
  reduceInPlace(largest, MPI_MAX, x.getComm());
  return largest;
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::min_max_sum(T* min, T* max, T* sum) const {
  const Local& local = impl_->local;
  BlasOps<T, L>::min_max_sum(local.getDevice(), local.getSize(), local.getData(), min, max, sum);
  if (min != nullptr) reduceExtremum(*min, MPI_MIN, minByReal<T>, getComm());
  if (max != nullptr) reduceExtremum(*max, MPI_MAX, maxByReal<T>, getComm());
  if (sum != nullptr) reduceInPlace(*sum, MPI_SUM, getComm());
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::residual_vec(ParMatrixFreeT<T, G, L>& A, const ParMatrixT& x,
                                       const ParMatrixT& b, ParMatrixT& r) {
  b.deepCopy(r);
  A.aAxpby(T(-1), x, T(1), r, nullptr);
}

template <class T, class G, class L>
RealType<T> ParMatrixT<T, G, L>::residual(ParMatrixFreeT<T, G, L>& A, const ParMatrixT& x,
                                          const ParMatrixT& b, ParMatrixT& r) {
  residual_vec(A, x, b, r);
  return normL2(r);
}

template <class T, class G, class L>
RealType<T> ParMatrixT<T, G, L>::residual(ParMatrixFreeT<T, G, L>& A, const ParMatrixT& x,
                                          const ParMatrixT& b) {
  ParMatrixT r;
  return residual(A, x, b, r);
}

MIVO_INSTANCE_VALUES(ParMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParMatrixT, long, int)

}  // namespace mivo
