// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <type_traits>

#include "mivo/spm/parallel.hpp"
#include "mivo/utils/Device.hpp"
#ifdef MIVO_WITH_CUDA
#include "mivo/spm/impls/Cuda.hpp"
#endif
#ifdef MIVO_CUDA_EMULATE
#include "mivo/spm/cuda_emulation/check_pointers.hpp"
#endif

namespace mivo::spm {

/// Space type behind the `auto& space` of a dispatched callable.
template <class S>
using SpaceOf = std::remove_cv_t<std::remove_reference_t<S>>;

/// Runs `call(space, args...)` in the execution space of `device`: the one place where a kernel
/// family turns a `Device` into a space. A kind without kernels gives a value-initialised result.
///
/// All pointers into device memory, and all views that hold such pointers, go through `args`, by
/// value, where a debugging runtime can see them. Pointers into host memory (results of reductions)
/// are captured by the callable instead. The callable only forwards to `Impl<Space>::op(space,
/// args...)`.
///
/// The host space stands on the stack, so that host kernels work before `Device::initialize`.
template <class Call, class... Args>
auto dispatch(const Device& device, const Call& call, Args... args)
    -> decltype(call(std::declval<OpenMP&>(), args...)) {
  using Result = decltype(call(std::declval<OpenMP&>(), args...));
#ifdef MIVO_CUDA_EMULATE
  cuda_emulation::checkPointers(device, args...);
#endif
  switch (device.type) {
    case Device::kHost: {
      OpenMP space{1};
      return call(space, args...);
    }
#ifdef MIVO_WITH_CUDA
    case Device::kCuda: {
      device.setDeviceContext();
      const auto space = std::static_pointer_cast<Cuda>(device.getDeviceInfo().space);
      return call(*space, args...);
    }
#endif
    default:
      return Result();
  }
}

}  // namespace mivo::spm

/// Body of a family's static member `op`: forwards to `Worker<Space>::op(space, ...)`, where
/// `Worker` is the family's alias for its worker class and `device` the member's first argument.
#define MIVO_DISPATCH(op, ...)                                                    \
  ::mivo::spm::dispatch(                                                          \
      device,                                                                     \
      [](auto& space, auto... args) {                                             \
        return Worker<::mivo::spm::SpaceOf<decltype(space)>>::op(space, args...); \
      },                                                                          \
      __VA_ARGS__)
