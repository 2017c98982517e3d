// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/spm/impls/OpenMP.hpp"

namespace mivo::sparse {

// This folder holds second forms of inner loops that are there for speed on a host alone, each with
// the bits of the plain form. `Forms.*` in tests/ops holds them to that; docs/developer-guide.md
// tells what each one gains.

/// Whether the library is built without them.
#ifdef MIVO_PLAIN_FORMS
inline constexpr bool kPlainForms = true;
#else
inline constexpr bool kPlainForms = false;
#endif

/// Whether kernels on a space take the forms of this folder.
template <class Space>
inline constexpr bool kFastForms = false;
template <>
inline constexpr bool kFastForms<spm::OpenMP> = !kPlainForms;

}  // namespace mivo::sparse
