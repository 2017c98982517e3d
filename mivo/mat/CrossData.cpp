// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/CrossData.hpp"

#include "mivo/ops/BlasOps.hpp"

namespace mivo {

template <class T>
CrossData<T>::CrossData(const Device& where, const T& value) {
  host.create(1, 1, Device("cpu"));
  device.create(1, 1, where);
  BlasOps<T, int>::fill(host.getDevice(), 1, value, host.getData());
  BlasOps<T, int>::fill(device.getDevice(), 1, value, device.getData());
}

template <class T>
void CrossData<T>::toHost() {
  device.toDevice(Device("cpu"), host);
}

template struct CrossData<int>;

}  // namespace mivo
