// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks a function or lambda that runs on the host and inside device kernels.
#if defined(__CUDACC__)
#define MIVO_FUNCTION __host__ __device__
#else
#define MIVO_FUNCTION
#endif
