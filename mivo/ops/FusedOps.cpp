// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/FusedOps.hpp"

#include "mivo/ops/FusedOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

template <class T, class I>
RealType<T> FusedOps<T, I>::cg_update(const Device& device, I n, T alpha, const T* p, T* x,
                                      const T* q, T* r) {
  return MIVO_DISPATCH(cg_update, n, alpha, p, x, q, r);
}

template <class T, class I>
T FusedOps<T, I>::axpy_dot(const Device& device, I n, T a, const T* x, T* y, const T* z) {
  return MIVO_DISPATCH(axpy_dot, n, a, x, y, z);
}

template <class T, class I>
RealType<T> FusedOps<T, I>::axpby_squares(const Device& device, I n, T a, const T* x, T b,
                                          const T* y, T* z) {
  return MIVO_DISPATCH(axpby_squares, n, a, x, b, y, z);
}

template <class T, class I>
T FusedOps<T, I>::lanczos_pair(const Device& device, I n, T a, const T* v, const T* u, T b,
                               const T* v_old, const T* u_old, T* r, T* z) {
  return MIVO_DISPATCH(lanczos_pair, n, a, v, u, b, v_old, u_old, r, z);
}

template <class T, class I>
void FusedOps<T, I>::minres_step(const Device& device, I n, T g, const T* u, T d, const T* w_old,
                                 T e, T* w, T step, T* x) {
  MIVO_DISPATCH(minres_step, n, g, u, d, w_old, e, w, step, x);
}

template <class T, class I>
void FusedOps<T, I>::symmlq_step(const Device& device, I n, T c, T s, const T* u, T* w_bar, T step,
                                 T* x) {
  MIVO_DISPATCH(symmlq_step, n, c, s, u, w_bar, step, x);
}

template <class T, class I>
void FusedOps<T, I>::qlp_step(const Device& device, I n, T g, const T* z, T c2, T s2, T c1, T s1,
                              T step, T* w_old, T* w, T* x) {
  MIVO_DISPATCH(qlp_step, n, g, z, c2, s2, c1, s1, step, w_old, w, x);
}

template <class T, class I>
void FusedOps<T, I>::jacobi_from_zero(const Device& device, I n, T relax, const T* d, const T* b,
                                      T* x) {
  MIVO_DISPATCH(jacobi_from_zero, n, relax, d, b, x);
}

template <class T, class I>
I FusedOps<T, I>::count_nonfinite(const Device& device, I n, const T* x) {
  return MIVO_DISPATCH(count_nonfinite, n, x);
}

MIVO_INSTANCE_SCALARS(FusedOps, int)

}  // namespace mivo
