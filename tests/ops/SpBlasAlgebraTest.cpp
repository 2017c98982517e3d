// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>
#include <type_traits>

#include "tests/ops/SpBlasTypes.hpp"

namespace mivo::test {
namespace {

template <class Pair>
class SpBlasAlgebra : public SpBlasSuite<Pair> {};
TYPED_TEST_SUITE(SpBlasAlgebra, SpBlasTypes);

/// alpha A + beta B with columns in order of first appearance.
template <class T, class I>
HostCsr<T, I> sum(T alpha, const HostCsr<T, I>& a, T beta, const HostCsr<T, I>& b) {
  HostCsr<T, I> c;
  c.cols = a.cols;
  for (I i = 0; i < a.rows; ++i) {
    for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k)
      c.accumulate(a.col_idx[k], alpha * a.values[k]);
    for (I k = b.rowptr[i]; k < b.rowptr[i + 1]; ++k)
      c.accumulate(b.col_idx[k], beta * b.values[k]);
    c.endRow();
  }
  return c;
}

TYPED_TEST(SpBlasAlgebra, ProductStandsInOrderOfFirstAppearance) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I inner) {
    const I cols = 37;
    const Csr a = this->random(rows, inner);
    const Csr b = this->random(inner, cols);
    Csr expected;
    expected.cols = cols;
    for (I i = 0; i < rows; ++i) {
      for (I ka = a.rowptr[i]; ka < a.rowptr[i + 1]; ++ka) {
        const I row = a.col_idx[ka];
        for (I kb = b.rowptr[row]; kb < b.rowptr[row + 1]; ++kb) {
          expected.accumulate(b.col_idx[kb], b.values[kb] * a.values[ka]);
        }
      }
      expected.endRow();
    }
    const DeviceMatrix da(device, a);
    const DeviceMatrix db(device, b);
    DeviceArray<I> marker(device, std::vector<I>(cols, 5));
    const Csr c = twoPass<T, I>(device, rows, cols, [&](COT_CSRRawMat<T, I> out) {
      Ops::csr_matmul(device, rows, inner, cols, da.rowptr(), da.col_idx(), da.values(),
                      db.rowptr(), db.col_idx(), db.values(), out.row_begin, out.col_idx,
                      out.values, marker.data());
    });
    EXPECT_EQ(c, expected);
    // The reference itself against the definition of the product.
    const std::vector<T> x = a.dense();
    const std::vector<T> y = b.dense();
    std::vector<T> z(static_cast<std::size_t>(rows) * cols, T(0));
    for (I i = 0; i < rows; ++i) {
      for (I k = 0; k < inner; ++k) {
        for (I j = 0; j < cols; ++j) z[i * cols + j] += x[i * inner + k] * y[k * cols + j];
      }
    }
    EXPECT_EQ(c.dense(), z);
  });
}

TYPED_TEST(SpBlasAlgebra, AdditionSortsItsInputsAndKeepsStoredZeros) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    Csr b = this->random(rows, cols);
    for (const bool cancel : {false, true}) {
      const T alpha = T(2);
      const T beta = cancel ? T(-2) : T(3);
      if (cancel) b = a;
      const DeviceMatrix da(device, a);
      const DeviceMatrix db(device, b);
      const auto nnz = a.values.size() + b.values.size();
      Csr room;
      room.col_idx.resize(nnz);
      room.values.resize(nnz);
      const DeviceMatrix scratch(device, room);
      const Csr c = twoPass<T, I>(device, rows, cols, [&](COT_CSRRawMat<T, I> out) {
        Ops::csr_matadd(device, alpha, da.view(), beta, db.view(), scratch.view(), out);
      });
      EXPECT_EQ(c, sum(alpha, a, beta, b).sorted());
      EXPECT_EQ(da.host(), a.sorted());
      EXPECT_EQ(db.host(), b.sorted());
      if (cancel) {
        EXPECT_EQ(c.values, std::vector<T>(a.values.size(), T(0)));
      }
    }
  });
}

TYPED_TEST(SpBlasAlgebra, HashedAdditionKeepsFirstAppearanceAndItsInputs) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    Csr a = this->random(rows, cols);
    Csr b = this->random(rows, cols);
    // Wide columns make the slots of a row collide.
    for (I& c : a.col_idx) c = c * 65537 % 2147483629;
    for (I& c : b.col_idx) c = c * 65537 % 2147483629;
    const DeviceMatrix da(device, a);
    const DeviceMatrix db(device, b);
    HashTableSlot<I, I> stale;
    stale.state = HashTableSlot<I, I>::kOccupied;
    DeviceArray<HashTableSlot<I, I>> slots(
        device, std::vector<HashTableSlot<I, I>>(a.values.size() + b.values.size(), stale));
    const Csr c = twoPass<T, I>(device, rows, cols, [&](COT_CSRRawMat<T, I> out) {
      Ops::csr_matadd_hash(device, T(2), da.view(), T(-3), db.view(), {}, out, slots.data());
    });
    EXPECT_EQ(c, sum(T(2), a, T(-3), b));
    EXPECT_EQ(da.host(), a);
    EXPECT_EQ(db.host(), b);
  });
}

TYPED_TEST(SpBlasAlgebra, SumOfManyAddsInTableOrder) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    std::vector<DeviceMatrix> matrices;
    std::vector<COT_CSRRawMat<T, I>> views;
    Csr expected;
    expected.rowptr.assign(rows + 1, 0);
    expected.rows = rows;
    expected.cols = cols;
    for (int m = 0; m < 3; ++m) {
      const Csr a = this->random(rows, cols);
      expected = sum(T(1), expected, T(1), a);
      matrices.emplace_back(device, a);
      views.push_back(matrices.back().view());
    }
    DeviceArray<COT_CSRRawMat<T, I>> table(device, views);
    DeviceArray<I> marker(device, std::vector<I>(cols, 5));
    EXPECT_EQ((twoPass<T, I>(device, rows, cols,
                             [&](COT_CSRRawMat<T, I> out) {
                               Ops::csr_matadd_vec(device, rows, cols, 3, table.data(), out,
                                                   marker.data());
                             })),
              expected);
  });
}

TYPED_TEST(SpBlasAlgebra, ScalingsMultiplyRowsAndColumns) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    const std::vector<T> left = this->vector(rows);
    const std::vector<T> right = this->vector(cols);
    DeviceArray<T> dleft(device, left);
    DeviceArray<T> dright(device, right);
    const DeviceMatrix d(device, a);
    Ops::csr_matmul_aDA(device, T(3), dleft.data(), d.mergeView(0, 0));
    Ops::csr_matmul_aAD(device, T(2), d.blockView(0, 0, 0, dright.data()));
    Csr expected = a;
    for (I i = 0; i < rows; ++i) {
      for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
        expected.values[k] *= left[i] * T(3) * right[a.col_idx[k]] * T(2);
      }
    }
    EXPECT_EQ(d.host(), expected);
  });
}

TYPED_TEST(SpBlasAlgebra, DiagonalUpdateLeavesTheRestUnscaled) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr source = this->random(rows, cols);
    const DeviceMatrix d(device, source);
    const std::vector<T> a = this->vector(rows);
    const std::vector<T> b = this->vector(rows);
    DeviceArray<T> da(device, a);
    DeviceArray<T> db(device, b);
    // Offsets that put the diagonal elsewhere and, for some rows, out of the block.
    for (const auto& first : std::vector<std::pair<int, int>>{{0, 0}, {3, 1}, {2, 9}}) {
      const int first_row = first.first;
      const int first_col = first.second;
      for (const bool given : {true, false}) {
        for (const T beta : {T(2), T(0)}) {
          Csr expected;
          expected.cols = cols;
          for (I i = 0; i < rows; ++i) {
            const I diagonal = first_row + i - first_col;
            const T ai = given ? a[i] : T(0);
            bool found = false;
            for (I k = source.rowptr[i]; k < source.rowptr[i + 1]; ++k) {
              T v = source.values[k];
              if (source.col_idx[k] == diagonal) {
                found = true;
                v = beta * (given ? b[i] : T(1)) * v + T(3) * ai;
              }
              expected.push(source.col_idx[k], v);
            }
            if (!found && diagonal >= 0 && diagonal < cols) expected.push(i, ai * T(3));
            expected.endRow();
          }
          EXPECT_EQ((twoPass<T, I>(device, rows, cols,
                                   [&](COT_CSRRawMat<T, I> out) {
                                     Ops::csr_axpby_diag(
                                         device, T(3), given ? da.data() : nullptr, beta,
                                         given ? db.data() : nullptr,
                                         d.mergeView(first_row, first_col),
                                         {out.rows, out.cols, out.nnz, out.row_begin, out.row_end,
                                          out.col_idx, out.values, 0, 0});
                                   })),
                    expected);
        }
      }
    }
  });
}

TYPED_TEST(SpBlasAlgebra, TransposeAndSortMatchTheirDefinitions) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    const DeviceMatrix d(device, a);
    Csr room;
    room.rows = cols;
    room.cols = rows;
    room.rowptr.assign(cols + 1, 77);
    room.col_idx.resize(a.col_idx.size());
    room.values.resize(a.values.size());
    const DeviceMatrix t(device, room);
    Ops::csr_transpose(device, rows, cols, d.rowptr(), d.col_idx(), d.values(), t.view().row_begin,
                       t.col_idx(), t.values());
    // The host visits rows in order, so its result is sorted; a device need not.
    if (device.type != Device::kHost) {
      Ops::csr_sort_rows(device, cols, rows, t.rowptr(), t.col_idx(), t.values());
    }
    EXPECT_EQ(t.host(), a.transposed());

    Csr doubled = a;  // equal columns, told apart by their values
    for (I& c : doubled.col_idx) c /= 2;
    const DeviceMatrix s(device, doubled);
    Ops::csr_sort_rows(device, rows, cols, s.rowptr(), s.col_idx(), s.values());
    EXPECT_EQ(s.host(), doubled.sorted());
  });
}

TYPED_TEST(SpBlasAlgebra, SparsifyComparesTheModulusStrictly) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    Csr a = this->random(rows, cols);
    if constexpr (std::is_floating_point_v<R>) {
      if (!a.values.empty()) a.values.back() = T(std::numeric_limits<R>::quiet_NaN());
    }
    const DeviceMatrix d(device, a);
    std::vector<T> limits(rows);
    for (I i = 0; i < rows; ++i) limits[i] = T(i % 4);
    DeviceArray<T> per_row(device, limits);
    const auto sparsified = [&](T threshold, const T* array) {
      return twoPass<T, I>(device, rows, cols, [&](COT_CSRRawMat<T, I> out) {
        Ops::csr_sparsify(device, d.view(), threshold, array, out);
      });
    };
    EXPECT_EQ(sparsified(T(0), nullptr),
              a.filtered([](I, I, const T& v) { return abs(v) > R(0); }));
    EXPECT_EQ(sparsified(T(2), nullptr),
              a.filtered([](I, I, const T& v) { return abs(v) > R(2); }));
    EXPECT_EQ(sparsified(T(9), per_row.data()),
              a.filtered([](I i, I, const T& v) { return abs(v) > R(i % 4); }));
  });
}

TYPED_TEST(SpBlasAlgebra, DenseScatterKeepsTheLastDuplicateAndOldElements) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    Csr a = this->random(rows, cols);
    for (I& c : a.col_idx) c /= 2;
    std::vector<T> expected(static_cast<std::size_t>(rows) * cols, T(9));
    const DeviceMatrix d(device, a);
    DeviceArray<T> dense(device, expected);
    for (I i = 0; i < rows; ++i) {
      for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k)
        expected[i * cols + a.col_idx[k]] = a.values[k];
    }
    Ops::csr2dense(device, rows, cols, d.rowptr(), d.col_idx(), d.values(), dense.data());
    EXPECT_EQ(dense.values(), expected);
  });
}

TEST(SpBlasAlgebra, SmallProductByHand) {
  // [1 1] [. 2 3]   [4 2 2]     first row met in the order 2, 1, 0; its entries at 2 add up to 3 -
  // 1 [0 2] [4 . -1] = [8 . -2]
  const Device host;
  const int a_rowptr[] = {0, 2, 3};
  const int a_col[] = {0, 1, 1};
  const double a_val[] = {1, 1, 2};
  const int b_rowptr[] = {0, 2, 4};
  const int b_col[] = {2, 1, 0, 2};
  const double b_val[] = {3, 2, 4, -1};
  int marker[3];
  const auto c = twoPass<double, int>(host, 2, 3, [&](COT_CSRRawMat<double, int> out) {
    SpBlasOps<double, int>::csr_matmul(host, 2, 2, 3, a_rowptr, a_col, a_val, b_rowptr, b_col,
                                       b_val, out.row_begin, out.col_idx, out.values, marker);
  });
  EXPECT_EQ(c.rowptr, (std::vector<int>{0, 3, 5}));
  EXPECT_EQ(c.col_idx, (std::vector<int>{2, 1, 0, 0, 2}));
  EXPECT_EQ(c.values, (std::vector<double>{2, 2, 4, 8, -2}));
}

}  // namespace
}  // namespace mivo::test
