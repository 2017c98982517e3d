// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/memory.hpp"

#include <cstdlib>

#include "mivo/utils/logging.hpp"

namespace mivo::detail {

void endWithoutMemory(std::size_t bytes, const Device& device, const char* what) {
  // A short source name needs no heap, as a path would.
  MIVO_CHECK_AT(false, "memory.cpp", __LINE__)
      << "no memory for " << bytes << " bytes on " << device.getString() << ": " << what;
  std::abort();  // not reached: a failed check exits
}

}  // namespace mivo::detail
