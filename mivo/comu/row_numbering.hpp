// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace mivo::comu::detail {

/// How the rows of the graph tools are numbered, agreed on by all ranks. Internal.
struct RowNumbering {
  bool listed = false;       ///< some rank lists its row ids; otherwise they follow the ranks
  std::vector<int> ids;      ///< global ids of this rank's rows
  std::vector<int> offsets;  ///< first row of each rank and the total, when not listed

  /// Collective. Whether rows are listed is decided over all ranks, since a rank may hold none.
  RowNumbering(int comm, const std::vector<int>& rows, const std::vector<int>& ptr);

  /// Rank whose interval holds the id, -1 for none. For rows that are not listed.
  int ownerOf(int id) const;
};

}  // namespace mivo::comu::detail
