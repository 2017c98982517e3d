// SPDX-License-Identifier: Apache-2.0
// Entry points of libFuzzer; MIVO_FUZZ_TARGET is the function of targets.hpp.

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/targets.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  mivo::fuzz::startHarness();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  mivo::fuzz::MIVO_FUZZ_TARGET(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
