// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "mivo/utils/export.hpp"

namespace mivo {

/// What the environment of a process tells of the launcher that started it.
struct LaunchedWorld {
  long size = 1;         ///< processes that were started together; 1 when nothing is told
  bool speaks = true;    ///< whether this process is the one to report, once for all
  std::string variable;  ///< where the size comes from
};

/// Reads the variables of Hydra (PMI), Open MPI, PMIx and Slurm. The variables of a launcher that
/// starts message-passing programs come before Slurm's, which stay in the environment of whatever a
/// job step starts, and one that tells of a single process is believed. An allocation alone,
/// without a job step, starts no processes.
MIVO_API LaunchedWorld launchedWorld();

/// Why a world of one process is not what the launcher started, and what to do; empty when the
/// world has more processes or the launcher started only this one. After the start of the message
/// layer.
MIVO_API std::string describeLoneWorld();

}  // namespace mivo
