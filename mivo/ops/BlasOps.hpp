// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/Device.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class I, class Space>
class BlasOpsImpl;

/// Elementwise and reducing kernels on contiguous arrays of n elements.
///
/// Every operation takes the device first; arrays lie in that device's memory and belong to the
/// caller. Nothing is checked here: sizes and devices are the caller's duty. T is int, long, float,
/// double, `Complex<float>` or `Complex<double>`, I is int or long, R is the real type of T. Zero
/// tests on scalars are exact and choose the loop once per call, so a dropped operand is never
/// read: NaN or infinity in it does not survive. An empty array writes nothing and reduces to the
/// identity of the reducer (`spm/reducers.hpp`). Reductions on the host add in index order.
template <class T, class I>
class MIVO_API BlasOps {
 public:
  using R = RealType<T>;

  /// x = a
  static void fill(const Device& device, I n, T a, T* x);
  /// x = x * a, or 0 where a is zero
  static void scal(const Device& device, I n, T a, T* x);
  /// y = x
  static void copy(const Device& device, I n, const T* x, T* y);
  /// y += x * a
  static void axpy(const Device& device, I n, T a, const T* x, T* y);
  /// y = x * a + y * b; b zero does not read y
  static void axpby(const Device& device, I n, T a, const T* x, T b, T* y);
  /// z += x * a + y * b
  static void axpbypz(const Device& device, I n, T a, const T* x, T b, const T* y, T* z);
  /// z = (x * a) * y + z * b, element by element; b zero does not read z
  static void axypbz(const Device& device, I n, T a, const T* x, const T* y, T b, T* z);
  /// z = y * b + x * a + z * c; c zero gives x * a + y * b and does not read z
  static void axpbypcz(const Device& device, I n, T a, const T* x, T b, const T* y, T c, T* z);
  /// x = a / x, with a / 0 taken as a; all zero where a is zero
  static void reciprocal(const Device& device, I n, T a, T* x);
  /// x = x to the power a; integers through double with truncation, complex by modulus and angle
  static void pow(const Device& device, I n, T a, T* x);
  /// Positions of elements that are not exactly zero (NaN counts), ascending. `indices` may be null
  /// to count only; `count` is one element of device memory and is always written. One sequential
  /// task.
  static void get_nonzero_indices(const Device& device, I n, const T* x, I* indices, I* count);
  static void get_real(const Device& device, I n, const T* x, R* y);  ///< y = real part of x
  /// y = imaginary part of x; 0 for a real T
  static void get_imag(const Device& device, I n, const T* x, R* y);
  /// z = (re, im); a null array stands for zeros
  static void create_complex(const Device& device, I n, const T* re, const T* im, Complex<T>* z);
  /// sum of conj(x) * y
  static T dot(const Device& device, I n, const T* x, const T* y);
  /// sum of x * y
  static T dotu(const Device& device, I n, const T* x, const T* y);
  /// largest abs(x), never below the smallest positive normal number of R
  static R abs_max(const Device& device, I n, const T* x);
  /// sum of abs(x) to the power p, without a root; p of 1 and 2 avoid `pow`
  static R abs_sum(const Device& device, I n, const T* x, R p);
  /// Each result is taken in a pass of its own when its host pointer is not null. Complex numbers
  /// are compared by the real part, and zero takes part.
  static void min_max_sum(const Device& device, I n, const T* x, T* min, T* max, T* sum);
  /// One AdamW update of x from the gradient g with the moments m, v, vmax (Loshchilov and Hutter,
  /// Decoupled Weight Decay Regularization, 2019). `step` counts from 1; `amsgrad` other than 0
  /// uses the running maximum of v.
  static void adamw_step(const Device& device, I n, const T* g, T* x, T* m, R* v, R* vmax, T lr,
                         R beta1, R beta2, R eps, T weight_decay, I amsgrad, I step);

 private:
  template <class Space>
  using Worker = BlasOpsImpl<T, I, Space>;
};

MIVO_EXTERN_VALUES(BlasOps, int)
MIVO_EXTERN_VALUES(BlasOps, long)

}  // namespace mivo
