// SPDX-License-Identifier: Apache-2.0
#include "mivo/mpi_stub/mpi.h"
#include "tests/mpi/encoding.hpp"

namespace mivo::test {

Encoding encodingOfLibrary() { return readEncoding(); }

}  // namespace mivo::test
