// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/export.hpp"

/// Declarations of the distributed containers for headers that only name them. They carry the
/// visibility here because clang settles it when the first instantiation names such a type: behind
/// a plain declaration, all that has it as an argument would stay private to the library.
namespace mivo {

template <class T, class G = long, class L = int>
class MIVO_API ParMatrixT;
template <class T, class G = long, class L = int>
class MIVO_API ParCSRMatrixT;

}  // namespace mivo
