// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/export.hpp"

namespace mivo {

/// Element (i, j) stands at i * ld + j.
struct MIVO_API MatrixLayoutRowMajor {};
/// Element (i, j) stands at j * ld + i.
struct MIVO_API MatrixLayoutColMajor {};

using RowMajor = MatrixLayoutRowMajor;

}  // namespace mivo
