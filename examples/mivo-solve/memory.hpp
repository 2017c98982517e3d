// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace mivo_solve {

/// Bytes that this process may still take, from the system's and the control group's figures;
/// infinity when neither can be read.
double availableMemory();

/// Upper estimate of the bytes at the peak, which is in assembly, for a matrix and the work vectors
/// of a solver.
double estimatedMemory(double rows, double entries, bool complex);

}  // namespace mivo_solve
