// SPDX-License-Identifier: Apache-2.0

// With --helper-thread the exchanges receive on a second thread. The program itself then starts the
// message-passing library, with the thread level that this asks for.

#include <mpi.h>

#include <cstdio>
#include <cstring>

#include "tests/support/mpi_runner.hpp"

namespace mivo::test {
extern bool helperThread;
bool helperThread = false;
}  // namespace mivo::test

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[argc - 1], "--helper-thread") == 0) {
    --argc;
    int provided = MPI_THREAD_SINGLE;
    MPI_Init_thread(&argc, &argv, MPI_THREAD_SERIALIZED, &provided);
    if (provided < MPI_THREAD_SERIALIZED) {
      std::printf("the message-passing library allows no second thread\n");
      return 1;
    }
    mivo::test::helperThread = true;
  }
  return mivo::test::runOnRanks(argc, argv);
}
