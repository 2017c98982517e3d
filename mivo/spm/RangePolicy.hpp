// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace mivo::spm {

/// The index range [begin, end) of a loop and the space that runs it.
template <class Space>
struct RangePolicy {
  Space& space;
  std::int64_t begin;
  std::int64_t end;
  std::int64_t chunk = -1;  ///< carried for callers; no space reads it

  RangePolicy(Space& s, std::int64_t b, std::int64_t e, std::int64_t c = -1)
      : space(s), begin(b), end(e), chunk(c) {}
};

}  // namespace mivo::spm
