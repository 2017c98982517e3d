// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <type_traits>

namespace mivo::spm {

/// The index range [begin, end) of a loop and the space that runs it, which outlives the policy.
template <class Space>
struct RangePolicy {
  const Space& space;
  std::int64_t begin;
  std::int64_t end;
  std::int64_t chunk = -1;  ///< carried for callers; no space reads it

  RangePolicy(const Space& s, std::int64_t b, std::int64_t e, std::int64_t c = -1)
      : space(s), begin(b), end(e), chunk(c) {}
};

namespace detail {

/// The result of a loop form, which limits that overload to one space.
template <class Space, class Which>
using IfSpace = std::enable_if_t<std::is_same_v<std::remove_const_t<Space>, Which>>;

}  // namespace detail
}  // namespace mivo::spm
