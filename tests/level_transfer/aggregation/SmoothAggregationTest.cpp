// SPDX-License-Identifier: Apache-2.0

// Strength and prolongation of smoothed aggregation on one rank, and what converges with it.

#include <gmock/gmock.h>

#include <cmath>
#include <random>
#include <vector>

#include "mivo/level_transfer/aggregation/ParLevelTransferSmoothAggregation.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/printed.hpp"

namespace mivo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

const std::string kParallel = "LevelTransferSmoothAggregation",
                  kSequential = "LevelTransferSmoothAggregationSeq";
template <class T>
const std::vector<T> kOnes(99, T(1));

/// Parameters of multigrid with the transfer of this name.
json hierarchy(const std::string& form, const json& pre, const json& post, const json& params) {
  return {{"level_transfer", {{"level_transfer_type", form}, {form + "_params", params}}},
          {"pre_smoother", pre},
          {"post_smoother", post}};
}

/// Random values off a diagonal of changing size; one row in six lacks it, one is empty.
template <class T>
HostCsr<T> couplings(std::mt19937& rng, int n) {
  return HostCsr<T>::build(n, n, [&](int i, HostCsr<T>& out) {
    for (int j = 0; j < n && i != 4; ++j) {
      if (j == i ? i % 6 != 5 : rng() % 4 == 0) {
        out.push(j, smallValue<T>(rng) + T(RealType<T>(j == i ? 6 : 0.5)));
      }
    }
  });
}

template <class T>
std::vector<T> diagonalOf(const HostCsr<T>& a) {
  std::vector<T> d(static_cast<std::size_t>(a.rows), T(0));
  for (int i = 0; i < a.rows; ++i) {
    for (const auto& [j, v] : a.row(i)) {
      if (j == i) d[static_cast<std::size_t>(i)] = v;
    }
  }
  return d;
}

/// A strength matrix by the formula, in numbers that complex types compare by their modulus.
template <class T>
HostCsr<int> strengthByFormula(const HostCsr<T>& a, double eps) {
  const auto d = diagonalOf(a);
  return HostCsr<int>::build(a.rows, a.cols, [&](int i, HostCsr<int>& out) {
    for (const auto& [j, v] : a.row(i)) {
      const T bound = d[static_cast<std::size_t>(i)] * d[static_cast<std::size_t>(j)];
      bool strong = false;
      if constexpr (kIsComplex<T>) {
        strong = abs(v * v) > eps * eps * abs(bound) * (1 + 1e-5);
      } else {
        strong = v * v > eps * eps * bound;
      }
      out.push(j, i != j && strong ? 1 : 0);
    }
  });
}

/// (I - omega Df^-1 Af) T as a dense matrix, with the weak entries added to the diagonal of Af
/// `sign` times.
template <class T>
std::vector<T> denseSmoothed(const HostCsr<T>& a, const HostCsr<int>& s, const std::vector<T>& t,
                             std::size_t cols, double omega, double sign) {
  const std::size_t n = static_cast<std::size_t>(a.rows);
  const auto strong = s.dense();
  std::vector<T> out(n * cols);
  for (std::size_t i = 0; i < n; ++i) {
    T d = diagonalOf(a)[i];
    for (const auto& [j, v] : a.row(static_cast<int>(i))) {
      const std::size_t at = static_cast<std::size_t>(j);
      if (at != i && strong[i * n + at] == 0) d += T(RealType<T>(sign)) * v;
    }
    const T inverse = isZero(d) ? T(sign > 0 ? 0 : 1) : T(1) / d;
    for (const auto& [j, v] : a.row(static_cast<int>(i))) {
      const std::size_t at = static_cast<std::size_t>(j);
      if (at != i && strong[i * n + at] == 0) continue;
      T factor = T(RealType<T>(-omega)) * inverse * (at == i && sign < 0 ? d : v);
      if (at == i && sign > 0) factor = T(RealType<T>(-omega));
      if (at == i) factor += T(1);
      for (std::size_t c = 0; c < cols; ++c) out[i * cols + c] += factor * t[at * cols + c];
    }
    const bool hasDiagonal = i % 6 != 5 && i != 4;
    for (std::size_t c = 0; c < cols && !hasDiagonal && sign < 0; ++c) {
      out[i * cols + c] += t[i * cols + c];
    }
  }
  return out;
}

template <class T>
class SmoothAggregation : public testing::Test {};
TYPED_TEST_SUITE(SmoothAggregation, ScalarTypes);

TYPED_TEST(SmoothAggregation, StrengthFollowsItsFormulaWithinRowsAndBlocks) {
  using T = TypeParam;
  using Ops = LevelTransferOps_SA<T, long, int>;
  std::mt19937 rng(3);
  // Values stand on the bound of the last matrix, and on that of no other.
  const std::vector<std::pair<HostCsr<T>, double>> cases = {
      {couplings<T>(rng, 1), 0.2371},
      {couplings<T>(rng, 2), 0.2371},
      {couplings<T>(rng, 33), 0.2371},
      {HostCsr<T>::fromDense(2, 2, {T(4), T(1), T(-1), T(4)}), 0.25}};
  for (const Device& device : testDevices()) {
    for (const auto& [a, eps] : cases) {
      const auto expected = strengthByFormula(a, eps);
      CSRMatrixT<int, int> S;
      Ops::seq_strength(sparseOf(device, a), matrixOf(device, a.rows, 1, diagonalOf(a)), S, eps);
      EXPECT_EQ(plainOf(S), expected);
      ParCSRMatrixT<int, long, int> parS;
      const auto A = parSparseOf(device, a);
      Ops::par_strength(A, A.getDiag(), parS, eps);
      EXPECT_EQ(plainOf(parS.getLocalMatrix(0)), expected);
      EXPECT_TRUE(parS.getColPartitioner() == A.getColPartitioner());
    }
  }
}

// Both forms against a dense product with independent formulas; on one rank the distributed form
// also against its own steps, to the bit.
TYPED_TEST(SmoothAggregation, ProlongationIsADampedJacobiStepOnTheFilteredMatrix) {
  using T = TypeParam;
  using Ops = LevelTransferOps_SA<T, long, int>;
  using Matrix = ParSparse<T>;
  std::mt19937 rng(5);
  for (const Device& device : testDevices()) {
    for (const double omega : {2.0 / 3.0, 1.0}) {
      const int n = 33;
      const auto a = couplings<T>(rng, n);
      const auto s = strengthByFormula(a, 0.2371);
      std::vector<int> aggr(n);
      for (int& number : aggr) number = static_cast<int>(rng() % 9) - 2;
      const HostCsr<T> t = HostCsr<T>::build(n, 7, [&](int i, HostCsr<T>& out) {
        const int number = aggr[static_cast<std::size_t>(i)];
        if (number >= 0) out.push(number, T(1));
      });

      CSRMatrixT<T, int> localT, localP;
      Ops::seq_tentative_prolongation(n, 7, matrixOf(device, n, 1, aggr), localT);
      EXPECT_EQ(plainOf(localT), t);
      EXPECT_EQ(localT.getCols(), 7);
      const std::string text = printed([&] {
        Ops::seq_tentative_smooth(sparseOf(device, a), 7, localT, sparseOf(device, s), localP,
                                  omega);
      });
      EXPECT_EQ(text, "the P nnzs is " + std::to_string(localP.getNnz()) + "\n");
      expectNear(plainOf(localP).dense(), denseSmoothed(a, s, t.dense(), 7, omega, 1));

      const auto A = parSparseOf(device, a);
      const auto S = parSparseOf(device, s);
      Matrix tentative, P, Af;
      ParMatrixT<int, long, int> spread;
      spread.createSeq(matrixOf(device, n, 1, aggr), kCommWorld);
      Ops::par_tentative_prolongation(n, 7, spread, tentative);
      EXPECT_EQ(plainOf(tentative.getLocalMatrix(0)), t);
      Ops::par_tentative_smooth(A, 7, tentative, S, P, omega);
      expectNear(plainOf(P.getLocalMatrix(0)).dense(),
                 denseSmoothed(a, s, t.dense(), 7, omega, -1));

      Ops::par_tentative_filter(A, S, Af);
      CSRMatrixT<T, int> localAf;
      Ops::seq_tentative_filter(sparseOf(device, a), sparseOf(device, s), localAf);
      EXPECT_EQ(plainOf(localAf), plainOf(Af.getLocalMatrix(0)));
      ParMatrixT<T, long, int> inverse = Af.getDiag(), ones;
      ParMatrixT<T, long, int>::reciprocal(T(1), inverse);
      Af.matmul_aDA(T(static_cast<RealType<T>>(-omega)), inverse, Af);
      ones.create(A.getRowPartitioner(), device, kCommWorld);
      ones.fill(T(1));
      Matrix::axpbyDiag(T(1), ones, T(1), {}, Af, Af);
      EXPECT_EQ(plainOf(P.getLocalMatrix(0)), plainOf(Af.multiply(tentative).getLocalMatrix(0)));
    }
  }
}

/// P and R of a transfer of this name.
template <class T>
std::pair<ParSparse<T>, ParSparse<T>> transferOf(const std::string& name, const json& params,
                                                 const ParSparse<T>& A, int level = 0) {
  const auto transfer = ParLevelTransferT<T, long, int>::getFactory().createInstance(
      {{"level_transfer_type", name}, {name + "_params", params}});
  transfer->setLevelId(level);
  ParSparse<T> P, R;
  transfer->transfer_operators(A, P, R);
  return {P, R};
}

// The Laplacian with rows that sum to 0 away from the boundary: there P keeps constants.
TYPED_TEST(SmoothAggregation, TransfersKeepConstantsAndAreTransposes) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    for (const auto& name : {kParallel, kSequential}) {
      const auto a = laplacian<T>(11, 9);
      const auto [P, R] = transferOf<T>(name, json::object(), parSparseOf(device, a));
      const auto p = plainOf(P.getLocalMatrix(0)), r = plainOf(R.getLocalMatrix(0)).sorted();
      EXPECT_EQ(p, p.sorted());
      EXPECT_EQ(r, p.transposed());
      for (int c = 0; c < r.rows; ++c) EXPECT_FALSE(r.row(c).empty()) << "numbers are compact";
      EXPECT_LT(P.getCols(), 33);
      EXPECT_EQ(P.getDevice().type, device.type);
      const auto sums = denseAxpby(p.dense(), T(1), std::vector<T>(p.cols, T(1)), T(0), kOnes<T>);
      const auto rowSums = denseAxpby(a.dense(), T(1), kOnes<T>, T(0), kOnes<T>);
      for (std::size_t i = 0; i < sums.size(); ++i) {
        EXPECT_TRUE(!isZero(rowSums[i]) || abs(sums[i] - T(1)) < 1e-6) << i;
      }
    }
  }
}

TEST(SmoothAggregationForms, ReadTheirKeysAndTellWhatTheyDo) {
  const auto A = parSparseOf(Device(), laplacian<double>(6, 6));
  const auto sequential = [&] {
    transferOf<double>(kSequential, {{"relax", 1.5}, {"block_size", 3}, {"smooth", false}}, A, 3);
  };
  const auto parallel = [&](bool verbose) {
    const json params = {{"smooth", false}, {"verbose", verbose}};
    const auto p = plainOf(transferOf<double>(kParallel, params, A, 2).first.getLocalMatrix(0));
    for (int i = 0; i < 36; ++i) EXPECT_EQ(p.row(i).size(), 1u);
  };
  EXPECT_THAT(printed(sequential), testing::MatchesRegex("the P nnzs is [0-9]+\n"));
  EXPECT_EQ(printed([&] { parallel(false); }), "");
  EXPECT_THAT(printed([&] { parallel(true); }),
              AllOf(HasSubstr("]    level" + MatrixMetaT<long>::getTableHead() + "\n"),
                    HasSubstr("]        2         36         36        156  ")));
  // eps_strong / 8 on level 3
  MIVO_EXPECT_PRINTED_AT(
      "3", sequential(),
      AllOf(HasSubstr("] size 36, eps_strong 0.01, block_size  3 relax 1.5, omega 1\n\n"),
            HasSubstr("] finish strength: 36 36 156\n\n"), HasSubstr("] finish aggregate: ")));
  MIVO_EXPECT_PRINTED_AT(
      "3", parallel(false),
      AllOf(HasSubstr("] Begin get the P for  Interpolator A: 36x36\n\n"),
            HasSubstr("] >>>>send_data_all myrank 0, n_undone 36, rows 36\n"),
            testing::ContainsRegex("\\] gather_count is \\[[0-9]+\\], count is [0-9]+\n")));
  const json unknown = {{"aggregator_type", "AggregatorVBM"}};
  MIVO_EXPECT_FATAL_TEXT(
      transferOf<double>(kParallel, {{"aggregator", unknown}}, A),
      R"(LevelTransferSmoothAggregation: "aggregator" should be an object with a known )"
      R"("aggregator_type", found {"aggregator_type":"AggregatorVBM"})");
}

// P has rows and no columns; nor does a level without rows, where there is no least size, end
// anything but the hierarchy.
TEST(SmoothAggregationForms, GoOnWithoutCoupledUnknowns) {
  const auto A = parSparseOf(Device(), laplacian<double>(6, 6));
  const json params = {{"eps_strong", 9.0}}, jacobi = smootherOf("SmootherJacobi");
  const auto P = transferOf<double>(kParallel, params, A).first;
  EXPECT_EQ(P.getRows(), 36);
  EXPECT_EQ(P.getCols(), 0);
  json keys = hierarchy(kParallel, jacobi, jacobi, params);
  keys["min_coarse_size"] = -1;
  const auto amg = makeAmg<double>(keys);
  amg->setup(A);
  EXPECT_EQ(amg->levels.size(), 2u);
}

// The flag has no key; what stays is the Galerkin product.
TEST(SmoothAggregationForms, KeepTheirWorkOnRequest) {
  SeqLevelTransferSmoothAggregation_T<double, long, int> transfer;
  transfer.create(json());
  EXPECT_EQ(transfer.aggregator_parameters["aggregator_type"], "AggregatorVMBSeq");
  EXPECT_EQ(transfer.children.front()->role, "aggregator");
  const auto A = parSparseOf(Device(), laplacian<double>(7, 5));
  ParSparse<double> P, R;
  for (const bool keep : {true, false}) {
    transfer.keep = keep;
    transfer.transfer_operators(A, P, R);
    ASSERT_EQ(transfer.impl != nullptr, keep);
    if (!keep) continue;
    expectNear(plainOf(transfer.impl->Ac).dense(),
               plainOf(R.multiply(A).multiply(P).getLocalMatrix(0)).dense());
  }
}

TEST(SmoothAggregationSolves, ConjugateGradientsInFewIterations) {
  const json vmb = {{"aggregator", {{"aggregator_type", "AggregatorVMBSeq"}}}};
  const json ssor = smootherOf("SmootherSSOR");
  for (const auto& form : {kParallel, kSequential}) {
    EXPECT_LE(multigridIterations(2, 64, hierarchy(form, ssor, ssor, vmb)), 12) << form;
    EXPECT_LE(multigridIterations(3, 24, hierarchy(form, ssor, ssor, vmb)), 13) << form;
  }
  const json jacobi = smootherOf("SmootherJacobi", {{"relax", 0.67}});
  const json list = smootherOf("SmootherList", {jacobi, jacobi});
  const json back = smootherOf("SmootherSOR", {{"forward", false}});
  for (const auto& [pre, post] : {std::pair(jacobi, jacobi),
                                  {list, list},
                                  {smootherOf("SmootherJacobiLp"), smootherOf("SmootherJacobiLp")},
                                  {smootherOf("SmootherSOR"), back}}) {
    EXPECT_LE(multigridIterations(2, 40, hierarchy(kParallel, pre, post, vmb)), 30) << pre;
  }
}

}  // namespace
}  // namespace mivo::test
