// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/BlasOps.hpp"

#include "mivo/ops/BlasOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

template <class T, class I>
void BlasOps<T, I>::fill(const Device& device, I n, T a, T* x) {
  MIVO_DISPATCH(fill, n, a, x);
}

template <class T, class I>
void BlasOps<T, I>::scal(const Device& device, I n, T a, T* x) {
  MIVO_DISPATCH(scal, n, a, x);
}

template <class T, class I>
void BlasOps<T, I>::copy(const Device& device, I n, const T* x, T* y) {
  MIVO_DISPATCH(copy, n, x, y);
}

template <class T, class I>
void BlasOps<T, I>::axpy(const Device& device, I n, T a, const T* x, T* y) {
  MIVO_DISPATCH(axpy, n, a, x, y);
}

template <class T, class I>
void BlasOps<T, I>::axpby(const Device& device, I n, T a, const T* x, T b, T* y) {
  MIVO_DISPATCH(axpby, n, a, x, b, y);
}

template <class T, class I>
void BlasOps<T, I>::axpbypz(const Device& device, I n, T a, const T* x, T b, const T* y, T* z) {
  MIVO_DISPATCH(axpbypz, n, a, x, b, y, z);
}

template <class T, class I>
void BlasOps<T, I>::axypbz(const Device& device, I n, T a, const T* x, const T* y, T b, T* z) {
  MIVO_DISPATCH(axypbz, n, a, x, y, b, z);
}

template <class T, class I>
void BlasOps<T, I>::axpbypcz(const Device& device, I n, T a, const T* x, T b, const T* y, T c,
                             T* z) {
  MIVO_DISPATCH(axpbypcz, n, a, x, b, y, c, z);
}

template <class T, class I>
void BlasOps<T, I>::reciprocal(const Device& device, I n, T a, T* x) {
  MIVO_DISPATCH(reciprocal, n, a, x);
}

template <class T, class I>
void BlasOps<T, I>::pow(const Device& device, I n, T a, T* x) {
  MIVO_DISPATCH(pow, n, a, x);
}

template <class T, class I>
void BlasOps<T, I>::get_nonzero_indices(const Device& device, I n, const T* x, I* indices,
                                        I* count) {
  MIVO_DISPATCH(get_nonzero_indices, n, x, indices, count);
}

template <class T, class I>
void BlasOps<T, I>::get_real(const Device& device, I n, const T* x, R* y) {
  MIVO_DISPATCH(get_real, n, x, y);
}

template <class T, class I>
void BlasOps<T, I>::get_imag(const Device& device, I n, const T* x, R* y) {
  MIVO_DISPATCH(get_imag, n, x, y);
}

template <class T, class I>
void BlasOps<T, I>::create_complex(const Device& device, I n, const T* re, const T* im,
                                   Complex<T>* z) {
  MIVO_DISPATCH(create_complex, n, re, im, z);
}

template <class T, class I>
T BlasOps<T, I>::dot(const Device& device, I n, const T* x, const T* y) {
  return MIVO_DISPATCH(dot, n, x, y);
}

template <class T, class I>
T BlasOps<T, I>::dotu(const Device& device, I n, const T* x, const T* y) {
  return MIVO_DISPATCH(dotu, n, x, y);
}

template <class T, class I>
RealType<T> BlasOps<T, I>::abs_max(const Device& device, I n, const T* x) {
  return MIVO_DISPATCH(abs_max, n, x);
}

template <class T, class I>
RealType<T> BlasOps<T, I>::abs_sum(const Device& device, I n, const T* x, R p) {
  return MIVO_DISPATCH(abs_sum, n, x, p);
}

template <class T, class I>
void BlasOps<T, I>::min_max_sum(const Device& device, I n, const T* x, T* min, T* max, T* sum) {
  spm::dispatch(
      device,
      [=](auto& space, I count, const T* values) {
        Worker<spm::SpaceOf<decltype(space)>>::min_max_sum(space, count, values, min, max, sum);
      },
      n, x);
}

template <class T, class I>
void BlasOps<T, I>::adamw_step(const Device& device, I n, const T* g, T* x, T* m, R* v, R* vmax,
                               T lr, R beta1, R beta2, R eps, T weight_decay, I amsgrad, I step) {
  MIVO_DISPATCH(adamw_step, n, g, x, m, v, vmax, lr, beta1, beta2, eps, weight_decay, amsgrad,
                step);
}

MIVO_INSTANCE_VALUES(BlasOps, int)
MIVO_INSTANCE_VALUES(BlasOps, long)

}  // namespace mivo
