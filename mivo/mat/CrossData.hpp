// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/Matrix.hpp"
#include "mivo/utils/export.hpp"

namespace mivo {

/// A scalar that kernels write on a device and the host reads: kernels take `device.getData()`,
/// then the caller calls `toHost()` and reads `host`.
template <class T>
struct MIVO_API CrossData {
  MatrixT<T, int, MatrixLayoutRowMajor> host;    ///< 1 by 1 on the host
  MatrixT<T, int, MatrixLayoutRowMajor> device;  ///< 1 by 1 on the given device

  /// Both sides start as `value`.
  CrossData(const Device& where, const T& value);
  /// Brings the device side to the host. On the host both sides share one storage from then on.
  void toHost();
};

extern template struct CrossData<int>;

}  // namespace mivo
