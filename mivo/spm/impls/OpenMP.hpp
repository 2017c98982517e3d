// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace mivo::spm {

/// Host execution space. It runs on the calling thread; `threads` is the number of chunks into
/// which a range is cut, and it is 1 wherever the library makes one, so that loops run in index
/// order and results are reproducible to the bit.
struct OpenMP {
  int threads = 1;

  OpenMP() = default;
  constexpr explicit OpenMP(int chunks) : threads(chunks) {}
};

}  // namespace mivo::spm
