// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/export.hpp"

namespace mivo {

// Plain by-value views: the only form in which kernels see sparse matrices. All pointers lie in the
// memory of the device on which the kernel runs, and belong to the container that made the view.

/// Compressed sparse rows. Row i stands at positions [row_begin[i], row_end[i]); separate begin and
/// end pointers let a kernel walk rows that are not stored back to back.
template <class T, class I>
struct MIVO_API COT_CSRRawMat {
  I rows = 0;
  I cols = 0;
  I nnz = 0;
  I* row_begin = nullptr;
  I* row_end = nullptr;
  I* col_idx = nullptr;
  T* values = nullptr;
};

/// A block inside a merged matrix.
template <class T, class I>
struct MIVO_API COT_MergeCSRRawMat {
  I rows = 0;
  I cols = 0;
  I nnz = 0;
  I* row_begin = nullptr;
  I* row_end = nullptr;
  I* col_idx = nullptr;
  T* values = nullptr;
  I first_row = 0;  ///< row of the merged matrix at which the block begins
  I first_col = 0;  ///< column of the merged matrix at which the block begins
};

/// One column block of a distributed matrix.
template <class T, class I>
struct MIVO_API COT_SpMVCSRRawMat {
  I rows = 0;
  I cols = 0;
  I nnz = 0;
  I* row_begin = nullptr;
  I* row_end = nullptr;
  I* col_idx = nullptr;  ///< local to the block
  T* values = nullptr;
  I first_row = 0;  ///< global row of the block's row 0
  I first_col = 0;  ///< global column of the block's column 0
  int rank = 0;     ///< owner of the block's columns
  T* x = nullptr;   ///< vector piece that the block multiplies: own piece or ghost values
  T* y = nullptr;   ///< piece to which the block's product goes
};

/// One block of a halo exchange plan.
template <class T, class I>
struct MIVO_API COT_RawCommPattern {
  int procId = 0;                   ///< owner of the block's columns
  I recv_x_size = 0;                ///< elements of recv_x: one per column of the block
  I nzc_recv_size = 0;              ///< elements of nzc_recv_indices
  T* recv_x = nullptr;              ///< ghost values by block-local column
  I col_start = 0;                  ///< first global column of the block
  int* nzc_recv_indices = nullptr;  ///< columns that the local rows touch, ascending
  int* recv_write_flag = nullptr;   ///< ghost entries written for the reverse exchange
};

/// A cell of the open-addressing table of `csr_matadd_hash`.
template <class K, class V>
struct MIVO_API HashTableSlot {
  static constexpr int kFree = 0;
  static constexpr int kOccupied = 1;
  static constexpr int kDeleted = 2;
  K key{};    ///< column
  V value{};  ///< position of the entry within the output row
  int state = kFree;
};

/// Step of `csr_split_cols`: 0 fills, anything else counts.
enum CSRMatStep : int { CSR_MAT_STEP_FILL = 0, CSR_MAT_STEP_COUNT = 1 };

}  // namespace mivo
