// SPDX-License-Identifier: Apache-2.0

// Classical strength, splitting and direct interpolation on one rank; tests/mpi/ClassicalTest.cpp
// has what several ranks do.

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/operators/ParInterpolator.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/ruge_stuben.hpp"

namespace mivo::test {
namespace {

using Marks = std::vector<int>;
using Ops = LevelTransferOps_RS<double, long, int>;

/// 1 for entries off the diagonal whose real part is below `eps` times the least of the row and 0.
template <class T>
HostCsr<int> strengthByFormula(const HostCsr<T>& a, double eps, Marks& marks) {
  using R = RealType<T>;
  marks.assign(static_cast<std::size_t>(a.rows), 'F');
  return HostCsr<int>::build(a.rows, a.cols, [&](int i, HostCsr<int>& out) {
    std::vector<R> negative{R(0)};
    for (const auto& [j, v] : a.row(i)) {
      if (j != i) negative.push_back(realPart(v));
    }
    const R least = *std::min_element(negative.begin(), negative.end());
    const bool coupled = least <= -std::ldexp(R(1), -51);
    if (coupled) marks[static_cast<std::size_t>(i)] = 'U';
    for (const auto& [j, v] : a.row(i)) {
      out.push(j, coupled && j != i && realPart(v) < static_cast<R>(eps) * least ? 1 : 0);
    }
  });
}

Marks splitOf(const Device& device, const HostCsr<int>& s, const Marks& marks) {
  auto cf = matrixOf(device, s.rows, 1, marks);
  Ops::cfsplit(CSRMatrixT<double, int>(), sparseOf(device, s), cf);
  return valuesOf(cf);
}

/// The same splitting on a plain list in which nodes of equal weight stand together: the place at
/// which a node changes its group is searched for.
Marks splitBySearch(const HostCsr<int>& s, Marks cf) {
  const int n = s.rows;
  const auto strong = s.filtered([](int, int, int v) { return v != 0; });
  const auto dependants = strong.transposed();
  const auto at = [](auto& v, int i) -> auto& { return v[static_cast<std::size_t>(i)]; };
  std::vector<int> weight(cf.size(), 0), order(cf.size());
  for (int i = 0; i < n; ++i) {
    at(order, i) = i;
    for (const auto& entry : dependants.row(i)) {
      at(weight, i) += at(cf, entry.first) == 'U' ? 1 : 2;
    }
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](int x, int y) { return at(weight, x) < at(weight, y); });
  for (auto top = order.end(); top != order.begin();) {
    const int i = *--top;
    // Those before `top` are still to come.
    const auto sameWeight = [&](int j) {
      return [&, j](int k) { return at(weight, k) == at(weight, j); };
    };
    if (at(weight, i) == 0) {
      std::replace(cf.begin(), cf.end(), int('U'), int('C'));
      break;
    }
    if (at(cf, i) == 'F') continue;
    at(cf, i) = 'C';
    for (const auto& dependant : dependants.row(i)) {
      if (at(cf, dependant.first) != 'U') continue;
      at(cf, dependant.first) = 'F';
      for (const auto& [j, v] : strong.row(dependant.first)) {
        if (at(cf, j) != 'U' || at(weight, j) + 1 >= n) continue;
        const auto last =
            std::find_if(std::make_reverse_iterator(top), order.rend(), sameWeight(j));
        std::iter_swap(std::find(order.begin(), order.end(), j), last);
        ++at(weight, j);
      }
    }
    for (const auto& [j, v] : strong.row(i)) {
      if (at(cf, j) != 'U' || at(weight, j) == 0) continue;
      const auto first = std::find_if(order.begin(), top, sameWeight(j));
      std::iter_swap(std::find(order.begin(), order.end(), j), first);
      --at(weight, j);
    }
  }
  return cf;
}

template <class T>
class RugeStueben : public testing::Test {};
TYPED_TEST_SUITE(RugeStueben, ScalarTypes);

TYPED_TEST(RugeStueben, ConnectsByTheLeastEntryOfARow) {
  using T = TypeParam;
  using Steps = LevelTransferOps_RS<T, long, int>;
  std::mt19937 rng(1);
  for (const Device& device : testDevices()) {
    for (const int n : {0, 1, 2, 33}) {
      auto a = randomCsr<T>(rng, n, n);
      if (n == 33) {
        // Entries around the size below which a row is taken as uncoupled.
        for (auto k = a.rowptr[5]; k < a.rowptr[6]; ++k)
          a.values[static_cast<std::size_t>(k)] = T(std::ldexp(RealType<T>(-1), -52));
        for (auto k = a.rowptr[12]; k < a.rowptr[13]; ++k)
          a.values[static_cast<std::size_t>(k)] = T(std::ldexp(RealType<T>(-1), -51));
      }
      // No product with one of these stands on a value of the matrix, nor does rounding matter.
      for (const double eps : {0.3, 0.7}) {
        Marks marks;
        const auto expected = strengthByFormula(a, eps, marks);
        CSRMatrixT<int, int> S;
        MatrixT<int, int> cf;
        Steps::connect(sparseOf(device, a), eps, S, cf);
        EXPECT_EQ(plainOf(S), expected);
        EXPECT_EQ(valuesOf(cf), marks);
        ParSparse<int> parS;
        ParMatrixT<int, long, int> parCf;
        Steps::par_connect(parSparseOf(device, a), eps, parS, parCf);
        EXPECT_EQ(plainOf(parS.getLocalMatrix(0)), expected);
        EXPECT_EQ(valuesOf(parCf), marks);
      }
    }
  }
}

// In a path each C point makes its neighbours F points and the node behind them the heaviest. A
// splitting that is not linear in the entries does not end here.
TEST(RugeStuebenSplitting, Alternates) {
  for (const int n : {1, 2, 3, 8, 9, 400000}) {
    Marks expected(static_cast<std::size_t>(n));
    // Of the inner points, all alike, the last one is taken first.
    for (int i = 0; i < n; ++i)
      expected[static_cast<std::size_t>(i)] = (n - i) % 2 == 0 ? 'C' : 'F';
    if (n == 1) expected = {'C'};  // alone and undecided
    if (n == 2) expected = {'F', 'C'};
    EXPECT_EQ(splitOf(Device(), pathStrength(n), Marks(expected.size(), 'U')), expected) << n;
  }
}

TEST(RugeStuebenSplitting, FollowsTheBucketsOnRandomGraphs) {
  std::mt19937 rng(2);
  const auto devices = testDevices();
  for (int round = 0; round < 300; ++round) {
    const int n = static_cast<int>(rng() % 40);
    auto s = randomStrength(rng, n, round % 2 == 0);
    if (n < 10) {
      // Dense, so that weights reach the number of nodes, from which on they do not grow.
      s = HostCsr<int>::build(n, n, [&](int i, HostCsr<int>& out) {
        for (int j = 0; j < n; ++j) out.push(j, j != i && rng() % 3 != 0 ? 1 : 0);
      });
    }
    Marks marks(static_cast<std::size_t>(n), 'U');
    if (round % 3 != 0) {
      for (int& mark : marks) mark = rng() % 4 == 0 ? 'F' : 'U';
    }
    const Device& device = devices[static_cast<std::size_t>(round) % devices.size()];
    const Marks found = splitOf(device, s, marks);
    ASSERT_EQ(found, splitBySearch(s, marks)) << round;
    // What makes interpolation possible: who became an F point depends on a C point.
    for (int i = 0; i < n; ++i) {
      if (found[static_cast<std::size_t>(i)] != 'F' || marks[static_cast<std::size_t>(i)] == 'F')
        continue;
      const auto row = s.row(i);
      EXPECT_TRUE(std::any_of(row.begin(), row.end(), [&](const auto& entry) {
        return entry.second != 0 && found[static_cast<std::size_t>(entry.first)] == 'C';
      })) << round;
    }
  }
}

// By the function, and behind the interface of interpolators, which always cuts.
TYPED_TEST(RugeStueben, InterpolatesDirectly) {
  using T = TypeParam;
  using Steps = LevelTransferOps_RS<T, long, int>;
  std::mt19937 rng(3);
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 40}) {
      for (const double trunc : {-1.0, 0.0, 0.2, 0.6}) {
        auto problem = DirectProblem<T>::random(rng, n, 'C', 'F');
        const auto expected = problem.reference(trunc >= 0, trunc, 'C');
        CSRMatrixT<T, int> P;
        long ncoarse = -1;
        Steps::interpolation(sparseOf(device, problem.a), sparseOf(device, problem.s),
                             matrixOf(device, n, 1, problem.cf), trunc >= 0, trunc, 'C', 'F',
                             ncoarse, P);
        expectSameEntries(plainOf(P), expected);
        EXPECT_EQ(ncoarse, expected.cols);
        EXPECT_EQ(P.getCols(), expected.cols);
        if (trunc < 0 || ncoarse == 0) continue;
        for (int& mark : problem.cf) mark = mark == 'C' ? 1 : rng() % 4 == 0 ? -3 : -1;
        json params = {{"interpolator_type", "InterpolatorAMGCLDirect"}};
        if (trunc != 0.2) params["InterpolatorAMGCLDirect_params"] = {{"trunc_factor", trunc}};
        const auto A = parSparseOf(device, problem.a);
        ParSparse<T> parP;
        ParInterpolatorT<T, long, int>::getFactory().createInstance(params)->interpolate(
            A, parSparseOf(device, problem.s), columnOf(device, A.getRowPartitioner(), problem.cf),
            ncoarse, parP);
        expectSameEntries(plainOf(parP.getLocalMatrix(0)), expected);
        EXPECT_EQ(ncoarse, expected.cols);
      }
    }
  }
}

// The share of what is cut stays with what is kept, but for an entry that stands on the bound.
TEST(RugeStuebenInterpolation, LosesTheShareOfAnEntryOnTheBound) {
  const auto a = plainRows<double>(3, {{{0, 4.0}}, {{0, -5.0}, {1, 3.0}, {2, -1.0}}, {{2, 1.0}}});
  const auto s = plainRows<int>(3, {{{0, 0}}, {{0, 1}, {1, 0}, {2, 1}}, {{2, 0}}});
  for (const bool do_trunc : {false, true}) {
    CSRMatrixT<double, int> P;
    long ncoarse = 0;
    Ops::interpolation(sparseOf(Device(), a), sparseOf(Device(), s),
                       matrixOf(Device(), 3, 1, Marks{'C', 'F', 'C'}), do_trunc, 0.2, 'C', 'F',
                       ncoarse, P);
    auto expected = plainRows<double>(2, {{{0, 1}}, {{0, 5. / 3}, {1, 1. / 3}}, {{1, 1}}});
    if (do_trunc) expected = plainRows<double>(2, {{{0, 1}}, {{0, 5. / 3}}, {{1, 1}}});
    expectSameEntries(plainOf(P), expected);
  }
}

}  // namespace
}  // namespace mivo::test
