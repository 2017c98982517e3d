// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/Complex.hpp"

/// The types for which the class templates of the library exist. Headers use the MIVO_FOR_EACH
/// lists to declare `extern template`; sources use the MIVO_INSTANTIATE lists, which a build that
/// splits a family by value type narrows to MIVO_ONLY_VALUE.
#define MIVO_FOR_EACH_VALUE(M) \
  M(int) M(long) M(float) M(double) M(::mivo::Complex<float>) M(::mivo::Complex<double>)

/// The four types in which systems are solved.
#define MIVO_FOR_EACH_SCALAR(M) \
  M(float) M(double) M(::mivo::Complex<float>) M(::mivo::Complex<double>)

#ifdef MIVO_ONLY_VALUE
#define MIVO_INSTANTIATE_VALUES(M) M(MIVO_ONLY_VALUE)
#define MIVO_INSTANTIATE_SCALARS(M) M(MIVO_ONLY_VALUE)
#else
#define MIVO_INSTANTIATE_VALUES(M) MIVO_FOR_EACH_VALUE(M)
#define MIVO_INSTANTIATE_SCALARS(M) MIVO_FOR_EACH_SCALAR(M)
#endif
