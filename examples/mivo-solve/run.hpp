// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "checks.hpp"
#include "options.hpp"
#include "report.hpp"

namespace mivo_solve {

/// Generates the system, prints what it is (unless JSON is asked for), solves it, recomputes the
/// residual, and writes the files asked for. Throws InputError when the system turns out to be
/// unusable. Collective.
Report runProblem(const Problem& problem, const Options& options);

}  // namespace mivo_solve
