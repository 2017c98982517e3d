// SPDX-License-Identifier: Apache-2.0
#include "tests/support/mpi_runner.hpp"

int main(int argc, char** argv) { return mivo::test::runOnRanks(argc, argv); }
