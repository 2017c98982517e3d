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
  for (const auto& [j, v] : from.row(row)) to.push(j, v);
}

TYPED_TEST(SpBlasSelection, RowsComeCompactOrAtTheirOwnNumbers) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const Csr& a, const OnDevice& d) {
    std::vector<I> chosen;
    for (I i = 0; i < a.rows; ++i) {
      if (i % 3 != 1) chosen.push_back(i);
    }
    std::shuffle(chosen.begin(), chosen.end(), this->rng);
    DeviceArray<I> list(device, chosen);
    const I n = static_cast<I>(chosen.size());
    const auto selected = [&](I rows, int keep) {
      return this->twoPasses(device, rows, a.cols, [&](View out) {
        Ops::get_selected_rows(device, d.view(), n, list, nullptr, out, keep);
      });
    };
    EXPECT_EQ(selected(n, 0),
              Csr::build(n, a.cols, [&](I i, Csr& out) { appendRow(out, a, chosen[i]); }));
    EXPECT_EQ(selected(a.rows, 1), a.filtered([](I i, I, const T&) { return i % 3 != 1; }));
  });
}

TYPED_TEST(SpBlasSelection, ColumnsByListRangeAndPosition) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const Csr& a, const OnDevice& d) {
    const auto twoPasses = [&](const auto& call) {
      return this->twoPasses(device, a.rows, a.cols, call);
    };
    std::set<I> wanted;
    for (I j = 0; j < a.cols; ++j) {
      if (this->rng() % 3 == 0) wanted.insert(j);
    }
    DeviceArray<I> list(device, std::vector<I>(wanted.begin(), wanted.end()));
    EXPECT_EQ(twoPasses([&](View out) {
                Ops::get_selected_cols(device, d.view(), static_cast<I>(wanted.size()), list, out,
                                       10);
              }),
              a.filtered([&](I, I j, const T&) { return wanted.count(j) > 0; }, 10));

    const I begin = a.cols / 4;
    const I end = a.cols - a.cols / 3;
    EXPECT_EQ(twoPasses([&](View out) {
                Ops::get_selected_cols_v3(device, d.view(), begin, end, out, -begin);
              }),
              a.filtered([&](I, I j, const T&) { return j >= begin && j < end; }, -begin));

    // All but the first entry of each row.
    std::vector<I> first(a.rows);
    for (I i = 0; i < a.rows; ++i) first[i] = std::min<I>(a.rowptr[i] + 1, a.rowptr[i + 1]);
    DeviceArray<I> begins(device, first);
    DeviceArray<I> ends(device, std::vector<I>(a.rowptr.begin() + 1, a.rowptr.end()));
    EXPECT_EQ(twoPasses([&](View out) {
                Ops::get_selected_cols_v2(device, d.view(), begins, ends, out, 1);
              }),
              Csr::build(a.rows, a.cols, [&](I i, Csr& out) {
                for (I k = first[i]; k < a.rowptr[i + 1]; ++k) out.push(a.col_idx[k], a.values[k]);
              }));
  });
}

TYPED_TEST(SpBlasSelection, SplitColumnsJoinAgain) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const Csr& a, const OnDevice& d) {
    const std::vector<I> bounds = {0, a.cols / 3, a.cols / 3, a.cols};  // the middle part is empty
    DeviceArray<I> dbounds(device, bounds);
    for (const int rebase : {0, 1}) {
      std::vector<Csr> expected;
      std::vector<OnDevice> parts;
      std::vector<View> views;
      std::vector<COT_MergeCSRRawMat<T, I>> blocks;
      for (int p = 0; p < 3; ++p) {
        const auto inside = [&](I, I j, const T&) { return j >= bounds[p] && j < bounds[p + 1]; };
        const I shift = rebase != 0 ? bounds[p] : 0;
        expected.push_back(a.filtered(inside, -shift));
        parts.emplace_back(device, expected[p].blank());
        views.push_back(parts[p].view());
        blocks.push_back(parts[p].mergeView(0, shift));
      }
      DeviceArray<View> table(device, views);
      Ops::csr_split_cols(device, CSR_MAT_STEP_COUNT, d.view(), 3, dbounds, table, rebase);
      for (int p = 0; p < 3; ++p) {
        EXPECT_EQ(parts[p].host().rowptr, expected[p].rowptr);
        EXPECT_EQ(table.values()[p].nnz, 0);
      }
      Ops::csr_split_cols(device, CSR_MAT_STEP_FILL, d.view(), 3, dbounds, table, rebase);
      for (int p = 0; p < 3; ++p) EXPECT_EQ(parts[p].host(), expected[p]);

      blocks.push_back({});  // a block without arrays is empty
      DeviceArray<COT_MergeCSRRawMat<T, I>> merge_table(device, blocks);
      EXPECT_EQ(
          this->twoPasses(device, a.rows, a.cols,
                          [&](View out) { Ops::csr_merge_cols(device, 4, merge_table, out); }),
          Csr::build(a.rows, a.cols, [&](I i, Csr& out) {
            for (int p = 0; p < 3; ++p) {
              for (const auto& [j, v] : expected[p].row(i)) out.push(j + blocks[p].first_col, v);
            }
          }));
    }
  });
}

TYPED_TEST(SpBlasSelection, RowsAppendAfterAndBetweenEmptyOnes) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const Csr& top, const OnDevice& dtop) {
    const Csr bottom = this->random(top.rows + 1, top.cols);
    const OnDevice dbottom(device, bottom);
    const I second = top.rows + 2;  // after two rows from a block without arrays
    const Csr expected = Csr::build(second + bottom.rows, top.cols, [&](I i, Csr& out) {
      if (i < top.rows) appendRow(out, top, i);
      if (i >= second) appendRow(out, bottom, i - second);
    });
    const OnDevice out(device, expected.blank());
    Ops::csr_append_rows(device, out.view(), 0, top.rows, dtop.view());
    Ops::csr_append_rows(device, out.view(), top.rows, 2, {});
    Ops::csr_append_rows(device, out.view(), second, bottom.rows, dbottom.view());
    EXPECT_EQ(out.host(), expected);
  });
}

// Matrices without rows have no row pointers.
TYPED_TEST(SpBlasSelection, NothingIsWrittenForMatricesWithoutRows) {
  USE_TYPES
  for (const Device& device : test::testDevices()) {
    test::DeviceArray<I> bounds(device, std::vector<I>{0, 2, 5});
    test::DeviceArray<View> table(device, std::vector<View>(2));
    for (const CSRMatStep step : {CSR_MAT_STEP_COUNT, CSR_MAT_STEP_FILL}) {
      Ops::csr_split_cols(device, step, {}, 2, bounds, table, 1);
    }
    Ops::csr_append_rows(device, {}, 0, 0, {});
    EXPECT_EQ(table.values()[1].row_begin, nullptr);
  }
}

TYPED_TEST(SpBlasSelection, DiagonalFollowsTheBlockOffsets) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const auto& a, const auto& d) {
    for (const I offset : {0, 3, -2}) {
      std::vector<T> expected(a.rows, T(9));
      DeviceArray<T> out(device, expected);
      for (I i = 0; i < a.rows; ++i) {
        for (const auto& [j, v] : a.row(i)) {
          if (j == i + offset) expected[i] = v;
        }
      }
      Ops::csr_diag(device, a.rows, a.cols, d.rowptr(), d.col_idx(), d.values(), out, 10 + offset,
                    10);
      EXPECT_EQ(out.values(), expected);
    }
  });
}

TEST(SpBlasSelection, MergedRowsAreSoundForOneBlockOnly) {
  using Csr = HostCsr<double>;
  std::mt19937 rng(3);
  const Csr a = randomCsr<double>(rng, 33, 31);
  for (const Device& device : testDevices()) {
    const auto merged = [&](int rows, const std::vector<COT_MergeCSRRawMat<double, int>>& blocks) {
      DeviceArray<COT_MergeCSRRawMat<double, int>> table(device, blocks);
      return twoPass<double, int>(device, rows, 200, [&](COT_CSRRawMat<double, int> out) {
        SpBlasOps<double, int>::csr_merge_rows(device, static_cast<int>(blocks.size()), table, out);
      });
    };
    const DeviceCsr<double> d(device, a);
    EXPECT_EQ(merged(33, {d.mergeView(0, 100)}),
              a.filtered([](int, int, double) { return true; }, 100));
    // Of two blocks with one row each, both land in row 0, and row 1 is left unwritten.
    const DeviceCsr<double> row(device, Csr{1, 1, {0, 1}, {0}, {7}});
    EXPECT_EQ(merged(2, {row.mergeView(0, 0), row.mergeView(1, 0)}),
              (Csr{2, 1, {0, 1, 2}, {0, -1}, {7, 99}}));
  }
}

}  // namespace
}  // namespace mivo::test
