// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

namespace mivo {

// The table that the key "verb" of several Krylov solvers turns on. `relR` and `relB` are the
// residual norm over that of the start and over that of b. Call on rank 0 only.

template <class R>
void printTableRow(int iter, R res, R relR, R relB) {
  std::printf("%5d   %12e   %12e   %12e\n", iter, static_cast<double>(res),
              static_cast<double>(relR), static_cast<double>(relB));
}

/// The title line, the tolerances, the names of the columns and the row of the start.
template <class R>
void printTableHead(const char* title, double atol, double rtol, double btol, R r0, R relB) {
  std::printf("%s\n", title);
  std::printf("Tolerances: atol=%lg, rtol=%lg, btol=%lg\n", atol, rtol, btol);
  std::printf("Iters   Resid. norm    Resid./resid0  Resid./rhs\n");
  std::printf("-----   ------------   -------------  ------------\n");
  printTableRow(0, r0, r0 / r0, relB);
}

}  // namespace mivo
