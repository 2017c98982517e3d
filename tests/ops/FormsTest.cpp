// SPDX-License-Identifier: Apache-2.0
/// The forms of mivo/ops/host against the plain ones, in whichever form the library is built: the
/// same bits on values whose sums depend on their order.

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

#include "mivo/spm/parallel.hpp"

namespace mivo::test {

struct FastHost : spm::OpenMP {};
struct PlainHost : spm::OpenMP {};

}  // namespace mivo::test

// Before the kernels, which name it by its namespace.
namespace mivo::spm {

/// Both run loops as the host does.
template <class Space, class Body>
std::enable_if_t<std::is_base_of_v<OpenMP, Space> && !std::is_same_v<OpenMP, Space>> parallel_for(
    const RangePolicy<Space>& policy, const Body& body) {
  parallel_for(RangePolicy<OpenMP>(policy.space, policy.begin, policy.end), body);
}

}  // namespace mivo::spm

#include "mivo/mivo.hpp"
#include "mivo/ops/host/filled_rows.hpp"
#include "tests/support/RandomCsr.hpp"

namespace mivo::sparse {

template <>
inline constexpr bool kFastForms<test::FastHost> = true;

}  // namespace mivo::sparse

namespace mivo::test {
namespace {

template <class T>
T fraction(std::mt19937& rng) {
  return fromParts<T>([&] { return static_cast<double>(rng() % 20001) / 9973 - 1; });
}

template <class T>
std::vector<T> fractions(std::mt19937& rng, int n) {
  std::vector<T> out(static_cast<std::size_t>(n));
  for (T& v : out) v = fraction<T>(rng);
  return out;
}

template <class T>
HostCsr<T> fractionalCsr(std::mt19937& rng, int rows, int cols) {
  auto a = randomCsr<T>(rng, rows, cols);
  for (T& v : a.values) v = fraction<T>(rng);
  return a;
}

/// Kernels only read what views of inputs name.
template <class T>
COT_CSRRawMat<T, int> viewOf(HostCsr<T>& a) {
  return {a.rows,
          a.cols,
          static_cast<int>(a.values.size()),
          a.rowptr.data(),
          &a.rowptr.data()[1],
          a.col_idx.data(),
          a.values.data()};
}

template <class Space, class T>
std::vector<T> product(const HostCsr<T>& a, T alpha, const std::vector<T>& x, T beta,
                       std::vector<T> y) {
  Space space;
  SpBlasProductsImpl<T, int, Space>::aAxpby(space, alpha, a.rows, a.cols, a.rowptr.data(), nullptr,
                                            a.col_idx.data(), a.values.data(), x.data(), beta,
                                            y.data());
  return y;
}

template <class T>
std::vector<T> productOfFilledRows(HostCsr<T>& a, T alpha, const std::vector<T>& x,
                                   std::vector<T> y) {
  std::vector<int> list;
  for (int i = 0; i < a.rows; ++i) {
    if (a.rowptr[i + 1] > a.rowptr[i]) list.push_back(i);
  }
  sparse::addFilledRows(alpha, static_cast<int>(list.size()), list.data(), viewOf(a), x.data(),
                        y.data());
  return y;
}

/// Columns, values and row ends of both parts of R A P, one behind the other.
template <class Space, class T>
HostCsr<T> tripleProduct(HostCsr<T> r, HostCsr<T> a, HostCsr<T> p, int ownCols) {
  const int room = r.rows * p.cols;
  HostCsr<T> own, rest, row;
  const auto reserve = [](HostCsr<T>& m, int rows, int cols, int entries) {
    m.rows = rows;
    m.cols = cols;
    m.rowptr.assign(static_cast<std::size_t>(rows) + 1, 0);
    m.col_idx.resize(static_cast<std::size_t>(entries));
    m.values.resize(static_cast<std::size_t>(entries));
  };
  reserve(own, r.rows, ownCols, room);
  reserve(rest, r.rows, p.cols - ownCols, room);
  reserve(row, 0, p.rows, p.rows);
  std::vector<int> markerA(static_cast<std::size_t>(p.rows) + 1), markerP(p.cols + 1), reached(1);
  const COT_MergeCSRRawMat<T, int> block{a.rows,
                                         a.cols,
                                         static_cast<int>(a.values.size()),
                                         a.rowptr.data(),
                                         &a.rowptr.data()[1],
                                         a.col_idx.data(),
                                         a.values.data(),
                                         0,
                                         0};
  TripleProductRows<T, int> m;
  m.r = viewOf(r);
  m.own_rows = a.rows;
  m.nblocks = 1;
  m.blocks = &block;
  m.p = viewOf(p);
  m.c = viewOf(own);
  m.rest = viewOf(rest);
  m.c_room = m.rest_room = room;
  m.reached = reached.data();
  m.marker_a = markerA.data();
  m.marker_p = markerP.data();
  m.row_a = viewOf(row);
  Space space;
  SpBlasAlgebraImpl<T, int, Space>::csr_matmul_triple(space, m);
  EXPECT_EQ(reached[0], r.rows);
  own.col_idx.resize(static_cast<std::size_t>(own.rowptr.back()));
  own.values.resize(own.col_idx.size());
  for (int i = 0; i < rest.rows; ++i) {
    for (const auto& [j, v] : rest.row(i)) own.push(j, v);
    own.endRow();
  }
  return own;
}

template <class T>
void compareForms() {
  std::mt19937 rng(7);
  for (const int rows : {0, 1, 2, 31, 32, 33, 97}) {
    for (const int cols : {1, 33, 300}) {  // short rows and long ones
      SCOPED_TRACE(std::to_string(rows) + " x " + std::to_string(cols));
      auto a = fractionalCsr<T>(rng, rows, cols);
      const auto x = fractions<T>(rng, cols), y = fractions<T>(rng, rows);
      const T alpha = fraction<T>(rng), beta = fraction<T>(rng);
      for (const T& b : {T(0), beta}) {
        expectSameBits(product<FastHost>(a, alpha, x, b, y), product<PlainHost>(a, alpha, x, b, y));
      }
      auto sum = product<PlainHost>(a, alpha, x, T(0), y);
      for (std::size_t i = 0; i < sum.size(); ++i) sum[i] = y[i] + sum[i] * T(1);
      expectSameBits(productOfFilledRows(a, alpha, x, y), sum);

      // Rows of P from none to more than a buffer holds.
      const auto r = fractionalCsr<T>(rng, rows, 40), middle = fractionalCsr<T>(rng, 40, 50),
                 p = fractionalCsr<T>(rng, 50, cols);
      for (const int ownCols : {cols, cols / 2}) {
        const auto fast = tripleProduct<FastHost>(r, middle, p, ownCols);
        const auto plain = tripleProduct<PlainHost>(r, middle, p, ownCols);
        EXPECT_EQ(fast.rowptr, plain.rowptr);
        EXPECT_EQ(fast.col_idx, plain.col_idx);
        expectSameBits(fast.values, plain.values);
      }
    }
  }
}

TEST(Forms, HaveTheBitsOfThePlainOnes) {
  compareForms<float>();
  compareForms<double>();
  compareForms<Complex<float>>();
  compareForms<Complex<double>>();
}

}  // namespace
}  // namespace mivo::test
