// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/launcher.hpp"

#include <algorithm>
#include <cstdlib>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/ranks.hpp"

namespace mivo {
namespace {

/// Value of a variable that holds a number, `missing` for another.
long number(const char* variable, long missing) {
  const char* text = std::getenv(variable);
  if (text == nullptr || *text == '\0') return missing;
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  constexpr long kMostProcesses = 1L << 30;
  return *end == '\0' && value >= 0 && value < kMostProcesses ? value : missing;
}

}  // namespace

LaunchedWorld launchedWorld() {
  struct Launcher {
    const char* size;
    const char* rank;
  };
  LaunchedWorld world;
  const auto take = [&](const Launcher& launcher) {
    const long size = number(launcher.size, 0);
    if (size > world.size) {
      world = {size, number(launcher.rank, 0) == 0, launcher.size};
    }
    return size;
  };
  long least = 0;
  for (const Launcher& launcher : {Launcher{"PMI_SIZE", "PMI_RANK"},
                                   Launcher{"OMPI_COMM_WORLD_SIZE", "OMPI_COMM_WORLD_RANK"}}) {
    const long size = take(launcher);
    if (size > 0) least = least > 0 ? std::min(least, size) : size;
  }
  if (least == 1) return {};
  if (least > 1) return world;
  // PMIx tells a process its number, but not the size.
  const long pmix = number("PMIX_RANK", 0);
  if (pmix > 0) return {pmix + 1, pmix == 1, "PMIX_RANK"};
  if (std::getenv("SLURM_PROCID") != nullptr) take({"SLURM_STEP_NUM_TASKS", "SLURM_PROCID"});
  return world;
}

std::string describeLoneWorld() {
  const int size = sizeOf(MPI_COMM_WORLD);
  if (size > 1) return {};
  const LaunchedWorld world = launchedWorld();
  if (world.size == 1) return {};
  char version[8192] = "";  // MPI_MAX_LIBRARY_VERSION_STRING of MPICH, the longest
  int length = 0;
  MPI_Get_library_version(version, &length);  // the form for one process writes nothing
  const bool alone = *version == '\0';
  const std::string started =
      (world.variable == "PMIX_RANK" ? "at least " : "") + std::to_string(world.size);
  return "the launcher started " + started + " processes (" + world.variable +
         "), but each of them is a world of its own: " +
         (alone
              ? "the message layer for one process is in use; link the program with mivo::mpi and "
              : "the program is linked with MPICH, and the launcher is another library's; ") +
         "launch it with the mpiexec of MPICH (mpiexec.mpich on Debian and Ubuntu)";
}

}  // namespace mivo
