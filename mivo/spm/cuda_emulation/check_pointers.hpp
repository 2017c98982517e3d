// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cuda_runtime_api.h>

#include <optional>
#include <string>
#include <type_traits>

#include "mivo/ops/kernel_arguments.hpp"
#include "mivo/ops/views.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo::cuda_emulation {

/// Ends the process unless the address lies in the memory of the device on which a kernel is about
/// to run: what a real GPU answers with a fault, and the host with silence.
inline void checkPointer(const Device& device, const void* p) {
  if (p == nullptr) return;
  const int owner = ownerOf(p);
  const int wanted = device.type == Device::kCuda ? device.id : -1;
  MIVO_CHECK(owner == wanted) << "a kernel on " << device.getString() << " got a pointer into "
                              << (owner < 0 ? std::string("host memory")
                                            : "cuda:" + std::to_string(owner));
}

template <class T>
struct IsView : std::false_type {};
template <class T, class I>
struct IsView<COT_CSRRawMat<T, I>> : std::true_type {};
template <class T, class I>
struct IsView<COT_MergeCSRRawMat<T, I>> : std::true_type {};
template <class T, class I>
struct IsView<COT_SpMVCSRRawMat<T, I>> : std::true_type {};

template <class View>
void checkView(const Device& device, const View& view) {
  checkPointer(device, view.row_begin);
  checkPointer(device, view.row_end);
  checkPointer(device, view.col_idx);
  checkPointer(device, view.values);
}
template <class T, class I>
void checkView(const Device& device, const COT_SpMVCSRRawMat<T, I>& view) {
  checkPointer(device, view.row_begin);
  checkPointer(device, view.row_end);
  checkPointer(device, view.col_idx);
  checkPointer(device, view.values);
  checkPointer(device, view.x);
  checkPointer(device, view.y);
}

/// Checks the arguments of a kernel in their order. The length of a table of views is the last
/// number before it, as in all kernels that take one.
class ArgumentChecker {
 public:
  explicit ArgumentChecker(const Device& device) : device_(device) {}

  template <class A>
  void check(const A& argument) {
    if constexpr (std::is_pointer_v<A>) {
      checkPointer(device_, argument);
      using Pointee = std::remove_cv_t<std::remove_pointer_t<A>>;
      if constexpr (IsView<Pointee>::value) checkTable(argument);
    } else if constexpr (IsView<A>::value) {
      checkView(device_, argument);
    } else if constexpr (std::is_base_of_v<KernelArguments, A>) {
      argument.visitMembers([this](const auto&... members) { (check(members), ...); });
    } else if constexpr (std::is_integral_v<A>) {
      count_ = static_cast<long>(argument);
    }
  }

 private:
  template <class View>
  void checkTable(const View* table) {
    if (table == nullptr) return;
    std::optional<OpenMemory> open;
    if (device_.type == Device::kCuda) open.emplace(device_.id);
    for (long k = 0; k < count_; ++k) checkView(device_, table[k]);
  }

  const Device& device_;
  long count_ = 0;
};

template <class... Args>
void checkPointers(const Device& device, const Args&... args) {
  ArgumentChecker checker(device);
  (checker.check(args), ...);
}

}  // namespace mivo::cuda_emulation
