// SPDX-License-Identifier: Apache-2.0

// Programs that start under a message-passing library of one family or another. This program stands
// before all libraries and answers for them.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "mivo/utils/Device.hpp"
#include "tests/support/fatal.hpp"

namespace {

std::string& version() {
  static std::string text;
  return text;
}

}  // namespace

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

}  // namespace
}  // namespace mivo
