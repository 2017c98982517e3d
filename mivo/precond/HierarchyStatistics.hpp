// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mivo/utils/export.hpp"

namespace mivo {

/// What there is to tell about a multigrid hierarchy that has been set up: sizes over all ranks,
/// times in seconds of the slowest one. Made by `ParPreconditionerAMG_T::getStatistics`.
struct MIVO_API HierarchyStatistics {
  struct MIVO_API Phase {
    std::string name;
    double seconds = 0;
  };

  struct MIVO_API Level {
    std::int64_t rows = 0;
    std::int64_t entries = 0;               ///< of A
    std::int64_t prolongation_entries = 0;  ///< of P, 0 on the coarsest level
    std::int64_t rows_min = 0;              ///< fewest rows of a rank
    std::int64_t rows_max = 0;              ///< most rows of a rank
    std::int64_t matrix_bytes = 0;          ///< of P, of R and, below the finest level, of A
    std::string smoother;                   ///< names of what smooths or solves here
    std::vector<Phase> setup;               ///< phases of the set-up, as below
    double cycle_time = 0;                  ///< this level alone in all cycles, with `profile`
  };

  std::vector<Level> levels;  ///< finest first
  /// "level transfers", "smoothers", "coarse operators" (of a level: its own A), "exchange plans",
  /// "coarsest level".
  std::vector<Phase> setup;
  double setup_time = 0;          ///< the whole set-up
  std::int64_t matrix_bytes = 0;  ///< of all levels
  int cycles = 0;                 ///< since the set-up

  /// Entries of all A by those of the finest one; 1 where that has none.
  double operatorComplexity() const;
  /// Rows of all levels by those of the finest one; 1 where that has none.
  double gridComplexity() const;
};

}  // namespace mivo
