// SPDX-License-Identifier: Apache-2.0

// Programs that start under a message-passing library of one family or another. This program stands
// before all libraries and answers for them.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "mivo/utils/Device.hpp"
#include "tests/support/fatal.hpp"

namespace {

std::string& version() {
  static std::string text;
  return text;
}

bool g_ended = false;

}  // namespace

extern "C" int MPI_Finalized(int* flag) {
  *flag = g_ended ? 1 : 0;
  return 0;
}

extern "C" int MPI_Get_library_version(char* text, int* length) {
  std::strcpy(text, version().c_str());
  *length = static_cast<int>(version().size());
  return 0;
}

namespace mivo {
namespace {

TEST(LibraryFamily, InitializeGoesOnWhereHandlesAreThoseOfMpich) {
  for (const char* text :
       {"", "MPICH Version:\t4.0.2\nMPICH Release date:\tThu Apr 7",
        "MVAPICH2 Version      :\t2.3.7", "Intel(R) MPI Library 2021.9 for Linux",
        "MPI VERSION    : CRAY MPICH version 8.1.25.17 (ANL base 3.4a2)"}) {
    version() = text;
    EXPECT_EXIT(
        {
          Device::initialize();
          std::exit(0);
        },
        testing::ExitedWithCode(0), "")
        << text;
  }
}

TEST(LibraryFamily, InitializeRefusesOtherFamiliesBeforeItsFirstHandle) {
  for (const char* text : {"Open MPI v4.1.4, package: Debian OpenMPI", "HPE MPT 2.25"}) {
    version() = text;
    const std::string name = version().substr(0, version().find(','));
    EXPECT_EXIT(
        {
          test::stdoutToStderr();
          Device::initialize();
        },
        testing::ExitedWithCode(1),
        testing::Eq("Device::initialize: the message-passing library of this run is \"" + name +
                    "\"; libmivo needs MPICH or a library with its binary interface\n"));
  }
}

// The world of this program is one process, whatever the launcher says.
TEST(MessageLayer, TellsAWorldOfOneWhereALauncherStartedMore) {
  const char* const kSilent = "";
  const char* const kOpenMpi = "started 4 processes (OMPI_COMM_WORLD_SIZE), but each of them";
  const char* const kSlurm = "started 8 processes (SLURM_STEP_NUM_TASKS), but each of them";
  struct {
    std::vector<std::pair<const char*, const char*>> environment;
    const char* told;
  } const cases[] = {
      {{}, kSilent},
      {{{"PMI_SIZE", "1"}, {"PMI_RANK", "0"}}, kSilent},
      {{{"PMI_SIZE", "2"}, {"PMI_RANK", "0"}}, "started 2 processes (PMI_SIZE), but each of them"},
      {{{"PMI_SIZE", "2"}, {"PMI_RANK", "1"}}, kSilent},  // rank 0 has told it
      {{{"OMPI_COMM_WORLD_SIZE", "4"}, {"OMPI_COMM_WORLD_RANK", "0"}, {"PMIX_RANK", "0"}},
       kOpenMpi},
      {{{"OMPI_COMM_WORLD_SIZE", "many"}}, kSilent},
      {{{"PMIX_RANK", "1"}}, "started at least 2 processes (PMIX_RANK), but each of them"},
      {{{"PMIX_RANK", "0"}}, kSilent},
      {{{"PMIX_RANK", "2"}}, kSilent},
      // An allocation and its batch script start nothing; a job step does.
      {{{"SLURM_NTASKS", "8"}, {"SLURM_PROCID", "0"}}, kSilent},
      {{{"SLURM_STEP_NUM_TASKS", "8"}, {"SLURM_PROCID", "0"}}, kSlurm},
      {{{"SLURM_STEP_NUM_TASKS", "8"}, {"SLURM_PROCID", "0"}, {"PMI_SIZE", "1"}}, kSilent},
      {{{"SLURM_STEP_NUM_TASKS", "1"}, {"SLURM_PROCID", "0"}, {"OMPI_COMM_WORLD_SIZE", "4"}},
       kOpenMpi}};
  for (const auto& layer :
       {std::pair("", "link the program with mivo::mpi and launch it with the mpiexec of MPICH"),
        std::pair("MPICH Version:\t4.0.2", "launcher is another library's; launch it with")}) {
    version() = layer.first;
    for (const auto& one : cases) {
      EXPECT_EXIT(
          {
            for (const char* name : {"PMI_SIZE", "OMPI_COMM_WORLD_SIZE", "PMIX_RANK",
                                     "SLURM_STEP_NUM_TASKS", "SLURM_PROCID"}) {
              unsetenv(name);  // of whatever runs this test
            }
            for (const auto& [name, value] : one.environment) setenv(name, value, 1);
            Device::initialize();
            Device::initialize();
            std::exit(0);
          },
          testing::ExitedWithCode(0),
          testing::ResultOf(
              [&](const std::string& text) {
                const std::size_t line = text.find('\n');
                return one.told == kSilent
                           ? text.empty()
                           : line + 1 == text.size() && text.find(one.told) != std::string::npos &&
                                 text.find(layer.second) != std::string::npos;
              },
              true))
          << one.told;
    }
  }
}

TEST(MessageLayer, TellsThatItCannotBeStartedTwice) {
  version() = "MPICH Version:\t4.0.2";
  g_ended = true;
  EXPECT_EXIT(
      {
        Device::initialize();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^Device::initialize: the message layer has ended and cannot be");
  g_ended = false;
}

}  // namespace
}  // namespace mivo
