// SPDX-License-Identifier: Apache-2.0
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
  return HostCsr<T, I>::build(a.rows, a.cols, [&](I i, HostCsr<T, I>& c) {
    for (const auto& [j, v] : a.row(i)) c.accumulate(j, alpha * v);
    for (const auto& [j, v] : b.row(i)) c.accumulate(j, beta * v);
  });
}

/// A B with columns in order of first appearance.
template <class T, class I>
HostCsr<T, I> product(const HostCsr<T, I>& a, const HostCsr<T, I>& b) {
  return HostCsr<T, I>::build(a.rows, b.cols, [&](I i, HostCsr<T, I>& c) {
    for (const auto& [k, u] : a.row(i)) {
      for (const auto& [j, v] : b.row(k)) c.accumulate(j, v * u);
    }
  });
}

// A term without products leaves the rows of a sum unsorted, as if it were not there.
TYPED_TEST(SpBlasAlgebra, ProductsAndTheirSumsStandInOrder) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const Csr& a, const OnDevice& da) {
    const I cols = 37;
    const Csr b0 = this->random(a.cols, cols), b1 = this->random(a.cols, cols);
    const Csr p0 = product(a, b0), p1 = product(a, b1);
    const OnDevice d0(device, b0), d1(device, b1),
        d2(device, Csr::build(a.cols, cols, [](I, Csr&) {}));
    DeviceArray<I> marker(device, std::vector<I>(cols, 5)), used(device, std::vector<I>(3, 7));
    EXPECT_EQ(this->twoPasses(device, a.rows, cols,
                              [&](View out) {
                                Ops::csr_matmul(device, a.rows, a.cols, cols, da.rowptr(),
                                                da.col_idx(), da.values(), d0.rowptr(),
                                                d0.col_idx(), d0.values(), out.row_begin,
                                                out.col_idx, out.values, marker);
                              }),
              p0);
    Csr room;
    room.rowptr.resize(cols);
    room.col_idx.resize(cols);
    room.values.resize(cols);
    const OnDevice scratch(device, room);
    DeviceArray<View> left(device, {da.view(), da.view(), da.view()});
    for (const bool two : {false, true}) {
      DeviceArray<View> right(device, {d2.view(), d0.view(), two ? d1.view() : d2.view()});
      const Csr c = this->twoPasses(device, a.rows, cols, [&](View out) {
        Ops::csr_matmul_vec(device, a.rows, cols, 3, left, right, out, used, marker,
                            scratch.view());
      });
      const bool sorted = two && !p0.values.empty() && !p1.values.empty();
      const Csr s = two ? sum(T(1), p0, T(1), p1) : p0;
      EXPECT_EQ(c, sorted ? s.sorted() : s);
    }
  });
}

TYPED_TEST(SpBlasAlgebra, AdditionSortsItsInputsAndKeepsStoredZeros) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const Csr& a, const auto&) {
    for (const bool cancel : {false, true}) {
      const T beta = cancel ? T(-2) : T(3);
      const Csr b = cancel ? a : this->random(a.rows, a.cols);
      const OnDevice da(device, a), db(device, b);
      Csr room;
      room.col_idx.resize(a.values.size() + b.values.size());
      room.values.resize(room.col_idx.size());
      const OnDevice scratch(device, room);
      const Csr c = this->twoPasses(device, a.rows, a.cols, [&](View out) {
        Ops::csr_matadd(device, T(2), da.view(), beta, db.view(), scratch.view(), out);
      });
      EXPECT_EQ(c, sum(T(2), a, beta, b).sorted());
      EXPECT_EQ(da.host(), a.sorted());
      EXPECT_EQ(db.host(), b.sorted());
    }
  });
}

TYPED_TEST(SpBlasAlgebra, HashedAdditionKeepsFirstAppearanceAndItsInputs) {
  USE_TYPES
  using Slot = HashTableSlot<I, I>;
  this->forEachMatrix([&](const Device& device, Csr a, const auto&) {
    Csr b = this->random(a.rows, a.cols);
    for (I& c : a.col_idx) c *= 65537;  // wide columns make the slots of a row collide
    for (I& c : b.col_idx) c *= 65537;
    const OnDevice da(device, a), db(device, b);
    const Slot stale{1, 1, Slot::kOccupied};
    DeviceArray<Slot> slots(device, std::vector<Slot>(a.values.size() + b.values.size(), stale));
    const auto c = this->twoPasses(device, a.rows, a.cols, [&](View out) {
      Ops::csr_matadd_hash(device, T(2), da.view(), T(-3), db.view(), {}, out, slots);
    });
    EXPECT_EQ(c, sum(T(2), a, T(-3), b));
    EXPECT_EQ(da.host(), a);
    EXPECT_EQ(db.host(), b);
  });
}

TYPED_TEST(SpBlasAlgebra, SumOfManyAddsInTableOrder) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const auto& a, const auto& da) {
    const Csr b = this->random(a.rows, a.cols);
    const OnDevice db(device, b);
    DeviceArray<View> table(device, {da.view(), db.view(), da.view()});
    DeviceArray<I> marker(device, std::vector<I>(a.cols, 5));
    const auto c = this->twoPasses(device, a.rows, a.cols, [&](View out) {
      Ops::csr_matadd_vec(device, a.rows, a.cols, 3, table, out, marker);
    });
    EXPECT_EQ(c, sum(T(2), a, T(1), b));
  });
}

TYPED_TEST(SpBlasAlgebra, ScalingsMultiplyRowsAndColumns) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, Csr a, const auto& d) {
    const std::vector<T> left = this->vector(a.rows), right = this->vector(a.cols);
    DeviceArray<T> dleft(device, left), dright(device, right);
    Ops::csr_matmul_aDA(device, T(3), dleft, d.mergeView(0, 0));
    Ops::csr_matmul_aAD(device, T(2), d.blockView(0, 0, 0, dright));
    for (I i = 0; i < a.rows; ++i) {
      for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
        a.values[k] *= left[i] * right[a.col_idx[k]] * T(6);
      }
    }
    EXPECT_EQ(d.host(), a);
  });
}

TYPED_TEST(SpBlasAlgebra, DiagonalUpdateLeavesTheRestUnscaled) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const Csr& source, const OnDevice& d) {
    const std::vector<T> a = this->vector(source.rows), b = this->vector(source.rows);
    DeviceArray<T> da(device, a), db(device, b);
    // Offsets that put the diagonal elsewhere and, for some rows, out of the block.
    for (const I offset : {0, 2, -7}) {
      for (const bool given : {true, false}) {
        for (const T beta : {T(2), T(0)}) {
          const Csr expected = Csr::build(source.rows, source.cols, [&](I i, Csr& out) {
            const T ai = given ? a[i] : T(0);
            bool found = false;
            for (const auto& [j, v] : source.row(i)) {
              const bool diagonal = j == i + offset;
              found = found || diagonal;
              out.push(j, diagonal ? beta * (given ? b[i] : T(1)) * v + T(3) * ai : v);
            }
            // A missing diagonal comes last, numbered by its row.
            if (!found && i + offset >= 0 && i + offset < source.cols) out.push(i, ai * T(3));
          });
          const auto view = d.mergeView(10 + offset, 10);
          const Csr c = this->twoPasses(device, source.rows, source.cols, [&](View out) {
            Ops::csr_axpby_diag(
                device, T(3), given ? da.data() : nullptr, beta, given ? db.data() : nullptr, view,
                {out.rows, out.cols, 0, out.row_begin, out.row_end, out.col_idx, out.values, 0, 0});
          });
          EXPECT_EQ(c, expected);
        }
      }
    }
  });
}

TYPED_TEST(SpBlasAlgebra, TransposeAndSortMatchTheirDefinitions) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, Csr a, const OnDevice& d) {
    const Csr expected = a.transposed();
    const OnDevice t(device, expected.blank());
    Ops::csr_transpose(device, a.rows, a.cols, d.rowptr(), d.col_idx(), d.values(),
                       t.view().row_begin, t.col_idx(), t.values());
    // The host visits rows in order, so its result is sorted; a device need not.
    if (device.type != Device::kHost) {
      Ops::csr_sort_rows(device, a.cols, a.rows, t.rowptr(), t.col_idx(), t.values());
    }
    EXPECT_EQ(t.host(), expected);

    for (I& c : a.col_idx) c /= 2;  // equal columns, told apart by their values
    const OnDevice s(device, a);
    Ops::csr_sort_rows(device, a.rows, a.cols, s.rowptr(), s.col_idx(), s.values());
    EXPECT_EQ(s.host(), a.sorted());

    // The last of equal columns stays in a dense block, other elements are not cleared.
    std::vector<T> dense(static_cast<std::size_t>(a.rows) * a.cols, T(9));
    DeviceArray<T> ddense(device, dense);
    for (I i = 0; i < a.rows; ++i) {
      for (const auto& [j, v] : a.row(i)) dense[i * a.cols + j] = v;
    }
    Ops::csr2dense(device, a.rows, a.cols, s.rowptr(), s.col_idx(), s.values(), ddense);
    EXPECT_EQ(ddense.values(), dense);
  });
}

TYPED_TEST(SpBlasAlgebra, SparsifyComparesTheModulusStrictly) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, Csr a, const auto&) {
    if constexpr (std::is_floating_point_v<R>) {
      if (!a.values.empty()) a.values.back() = T(std::numeric_limits<R>::quiet_NaN());
    }
    const OnDevice d(device, a);
    std::vector<T> limits(a.rows);
    for (I i = 0; i < a.rows; ++i) limits[i] = T(i % 4);
    DeviceArray<T> per_row(device, limits);
    const auto sparsified = [&](T threshold, const T* array) {
      return this->twoPasses(device, a.rows, a.cols, [&](View out) {
        Ops::csr_sparsify(device, d.view(), threshold, array, out);
      });
    };
    for (const int limit : {0, 2}) {
      EXPECT_EQ(sparsified(T(limit), nullptr),
                a.filtered([&](I, I, const T& v) { return abs(v) > R(limit); }));
    }
    EXPECT_EQ(sparsified(T(9), per_row),
              a.filtered([](I i, I, const T& v) { return abs(v) > R(i % 4); }));
  });
}

}  // namespace
}  // namespace mivo::test
