// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <set>

#include "mivo/comu/Stream.hpp"
#include "mivo/utils/export.hpp"

namespace mivo::comu {

/// Message record of the owner search, sent as its bytes.
struct MIVO_API DATA {
  int id = 0;
  int rank = 0;
};

/// Message record of the graph transposition: the vertices attached to `id`, and who says so.
/// Packed as id, rank, number of neighbours, neighbours ascending, all 32-bit.
struct MIVO_API TRDATA {
  int id = 0;    ///< graph vertex, a column of the matrix
  int rank = 0;  ///< rank that sends the record
  std::set<int> neighbours;

  std::size_t getStreamSize() const;
  void packStream(Stream& stream) const;
  void unpackStream(Stream& stream);
};

}  // namespace mivo::comu
