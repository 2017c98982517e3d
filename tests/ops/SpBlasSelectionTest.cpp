// SPDX-License-Identifier: Apache-2.0
#include <set>

#include "tests/ops/SpBlasTypes.hpp"

namespace mivo::test {
namespace {

template <class Pair>
class SpBlasSelection : public SpBlasSuite<Pair> {};
TYPED_TEST_SUITE(SpBlasSelection, SpBlasTypes);

template <class T, class I>
void appendRow(HostCsr<T, I>& to, const HostCsr<T, I>& from, I row) {
  for (I k = from.rowptr[row]; k < from.rowptr[row + 1]; ++k)
    to.push(from.col_idx[k], from.values[k]);
}

TYPED_TEST(SpBlasSelection, RowsComeCompactOrAtTheirOwnNumbers) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    const DeviceMatrix d(device, a);
    std::vector<I> chosen;
    for (I i = rows - 1; i >= 0; --i) {
      if (i % 3 != 1) chosen.push_back(i);
    }
    std::shuffle(chosen.begin(), chosen.end(), this->rng);
    DeviceArray<I> list(device, chosen);
    const I n = static_cast<I>(chosen.size());
    Csr compact;
    for (const I i : chosen) {
      appendRow(compact, a, i);
      compact.endRow();
    }
    Csr kept;
    for (I i = 0; i < rows; ++i) {
      if (i % 3 != 1) appendRow(kept, a, i);
      kept.endRow();
    }
    for (const int keep : {0, 1}) {
      const Csr c = twoPass<T, I>(device, keep != 0 ? rows : n, cols, [&](COT_CSRRawMat<T, I> out) {
        Ops::get_selected_rows(device, d.view(), n, list.data(), nullptr, out, keep);
      });
      EXPECT_EQ(c, keep != 0 ? kept : compact);
    }
  });
}

TYPED_TEST(SpBlasSelection, ColumnsByListRangeAndPosition) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    const DeviceMatrix d(device, a);
    std::set<I> wanted;
    for (I j = 0; j < cols; ++j) {
      if (this->rng() % 3 == 0) wanted.insert(j);
    }
    DeviceArray<I> list(device, std::vector<I>(wanted.begin(), wanted.end()));
    const Csr by_list = twoPass<T, I>(device, rows, cols, [&](COT_CSRRawMat<T, I> out) {
      Ops::get_selected_cols(device, d.view(), static_cast<I>(wanted.size()), list.data(), out, 10);
    });
    EXPECT_EQ(by_list, a.filtered([&](I, I j, const T&) { return wanted.count(j) > 0; }, 10));

    const I begin = cols / 4;
    const I end = cols - cols / 3;
    const Csr by_range = twoPass<T, I>(device, rows, cols, [&](COT_CSRRawMat<T, I> out) {
      Ops::get_selected_cols_v3(device, d.view(), begin, end, out, -begin);
    });
    EXPECT_EQ(by_range,
              a.filtered([&](I, I j, const T&) { return j >= begin && j < end; }, -begin));

    // All but the first entry of each row.
    std::vector<I> first(rows);
    std::vector<I> last(rows);
    Csr tails;
    for (I i = 0; i < rows; ++i) {
      first[i] = std::min<I>(a.rowptr[i] + 1, a.rowptr[i + 1]);
      last[i] = a.rowptr[i + 1];
      for (I k = first[i]; k < last[i]; ++k) tails.push(a.col_idx[k], a.values[k]);
      tails.endRow();
    }
    DeviceArray<I> begins(device, first);
    DeviceArray<I> ends(device, last);
    const Csr by_position = twoPass<T, I>(device, rows, cols, [&](COT_CSRRawMat<T, I> out) {
      Ops::get_selected_cols_v2(device, d.view(), begins.data(), ends.data(), out, 1);
    });
    EXPECT_EQ(by_position, tails);
  });
}

TYPED_TEST(SpBlasSelection, SplitColumnsJoinAgain) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    const DeviceMatrix d(device, a);
    const std::vector<I> bounds = {0, cols / 3, cols / 3, cols};  // the middle part is empty
    DeviceArray<I> dbounds(device, bounds);
    for (const int rebase : {0, 1}) {
      std::vector<Csr> expected;
      std::vector<DeviceMatrix> parts;
      std::vector<COT_CSRRawMat<T, I>> views;
      for (int p = 0; p < 3; ++p) {
        expected.push_back(
            a.filtered([&](I, I j, const T&) { return j >= bounds[p] && j < bounds[p + 1]; },
                       rebase != 0 ? -bounds[p] : 0));
        Csr room = expected[p];
        std::fill(room.rowptr.begin(), room.rowptr.end(), I(77));
        std::fill(room.col_idx.begin(), room.col_idx.end(), I(-1));
        std::fill(room.values.begin(), room.values.end(), T(99));
        parts.emplace_back(device, room);
        views.push_back(parts[p].view());
      }
      DeviceArray<COT_CSRRawMat<T, I>> table(device, views);
      Ops::csr_split_cols(device, CSR_MAT_STEP_COUNT, d.view(), 3, dbounds.data(), table.data(),
                          rebase);
      for (int p = 0; p < 3; ++p) {
        EXPECT_EQ(parts[p].host().rowptr, expected[p].rowptr);
        EXPECT_EQ(table.values()[p].nnz, 0);
      }
      Ops::csr_split_cols(device, CSR_MAT_STEP_FILL, d.view(), 3, dbounds.data(), table.data(),
                          rebase);
      std::vector<COT_MergeCSRRawMat<T, I>> blocks;
      for (int p = 0; p < 3; ++p) {
        EXPECT_EQ(parts[p].host(), expected[p]);
        blocks.push_back(parts[p].mergeView(0, rebase != 0 ? bounds[p] : 0));
      }
      blocks.push_back({});  // a block without arrays is empty
      DeviceArray<COT_MergeCSRRawMat<T, I>> merge_table(device, blocks);
      const Csr joined = twoPass<T, I>(device, rows, cols, [&](COT_CSRRawMat<T, I> out) {
        Ops::csr_merge_cols(device, 4, merge_table.data(), out);
      });
      Csr by_part;
      for (I i = 0; i < rows; ++i) {
        for (int p = 0; p < 3; ++p) {
          for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
            if (a.col_idx[k] >= bounds[p] && a.col_idx[k] < bounds[p + 1]) {
              by_part.push(a.col_idx[k], a.values[k]);
            }
          }
        }
        by_part.endRow();
      }
      EXPECT_EQ(joined, by_part);
    }
  });
}

TYPED_TEST(SpBlasSelection, RowsAppendAfterAndBetweenEmptyOnes) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr top = this->random(rows, cols);
    const Csr bottom = this->random(rows + 1, cols);
    Csr expected;
    for (I i = 0; i < rows; ++i, expected.endRow()) appendRow(expected, top, i);
    expected.endRow();  // two rows from a block without arrays
    expected.endRow();
    for (I i = 0; i <= rows; ++i, expected.endRow()) appendRow(expected, bottom, i);
    const DeviceMatrix dtop(device, top);
    const DeviceMatrix dbottom(device, bottom);
    Csr room = expected;
    std::fill(room.rowptr.begin(), room.rowptr.end(), I(77));
    std::fill(room.col_idx.begin(), room.col_idx.end(), I(-1));
    const DeviceMatrix out(device, room);
    Ops::csr_append_rows(device, out.view(), 0, rows, dtop.view());
    Ops::csr_append_rows(device, out.view(), rows, 2, {});
    Ops::csr_append_rows(device, out.view(), rows + 2, rows + 1, dbottom.view());
    EXPECT_EQ(out.host(), expected);
  });
}

TYPED_TEST(SpBlasSelection, DiagonalFollowsTheBlockOffsets) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    const DeviceMatrix d(device, a);
    for (const auto& [first_row, first_col] : std::vector<std::pair<int, int>>{{0, 0}, {5, 2}}) {
      std::vector<T> expected(rows, T(9));
      DeviceArray<T> out(device, expected);
      for (I i = 0; i < rows; ++i) {
        for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
          if (a.col_idx[k] + first_col == first_row + i) expected[i] = a.values[k];
        }
      }
      Ops::csr_diag(device, rows, cols, d.rowptr(), d.col_idx(), d.values(), out.data(), first_row,
                    first_col);
      EXPECT_EQ(out.values(), expected);
    }
  });
}

TEST(SpBlasSelection, MergedRowsAreSoundForOneBlockOnly) {
  using Csr = HostCsr<double>;
  for (const Device& device : testDevices()) {
    std::mt19937 rng(3);
    const Csr a = randomCsr<double>(rng, 33, 31);
    const DeviceCsr<double> d(device, a);
    DeviceArray<COT_MergeCSRRawMat<double, int>> one(device, {d.mergeView(0, 100)});
    EXPECT_EQ((twoPass<double, int>(device, 33, 131,
                                    [&](COT_CSRRawMat<double, int> out) {
                                      SpBlasOps<double, int>::csr_merge_rows(device, 1, one.data(),
                                                                             out);
                                    })),
              a.filtered([](int, int, double) { return true; }, 100));

    // Two blocks of one row with one entry each: the second overwrites the first, the second row
    // stays unwritten.
    Csr row;
    row.push(0, 7);
    row.endRow();
    Csr other;
    other.push(0, 8);
    other.endRow();
    const DeviceCsr<double> first(device, row);
    const DeviceCsr<double> second(device, other);
    DeviceArray<COT_MergeCSRRawMat<double, int>> two(
        device, {first.mergeView(0, 0), second.mergeView(1, 0)});
    const Csr merged = twoPass<double, int>(device, 2, 1, [&](COT_CSRRawMat<double, int> out) {
      SpBlasOps<double, int>::csr_merge_rows(device, 2, two.data(), out);
    });
    EXPECT_EQ(merged.rowptr, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(merged.col_idx[1], -1);
    if (device.type == Device::kHost) {
      EXPECT_EQ(merged.values[0], 8);
    }
  }
}

}  // namespace
}  // namespace mivo::test
