// SPDX-License-Identifier: Apache-2.0

// Strength and prolongation of smoothed aggregation on one rank.

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

using testing::HasSubstr;

/// Random values off a diagonal of changing size; one row in six lacks it, one is empty.
template <class T>
HostCsr<T> couplings(std::mt19937& rng, int n) {
  return HostCsr<T>::build(n, n, [&](int i, HostCsr<T>& out) {
    for (int j = 0; j < n; ++j) {
      if (i == 4) continue;
      if (j == i && i % 6 != 5) {
        out.push(j, smallValue<T>(rng) + T(RealType<T>(6)));
      } else if (j != i && rng() % 4 == 0) {
        out.push(j, smallValue<T>(rng) + T(RealType<T>(0.5)));
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
void expectNear(const std::vector<T>& a, const std::vector<T>& b) {
  ASSERT_EQ(a.size(), b.size());
  const double eps = std::is_same_v<RealType<T>, float> ? 2e-5 : 1e-13;
  for (std::size_t k = 0; k < a.size(); ++k) {
    EXPECT_LE(static_cast<double>(abs(a[k] - b[k])), eps * (1 + static_cast<double>(abs(b[k]))))
        << k;
  }
}

template <class T>
class SmoothAggregation : public testing::Test {};
TYPED_TEST_SUITE(SmoothAggregation, ScalarTypes);

TYPED_TEST(SmoothAggregation, StrengthFollowsItsFormulaWithinRowsAndBlocks) {
  using T = TypeParam;
  using Ops = LevelTransferOps_SA<T, long, int>;
  std::mt19937 rng(3);
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 33}) {
      const auto a = couplings<T>(rng, n);
      // A threshold at which no value stands exactly on the bound.
      const double eps = 0.2371;
      const auto expected = strengthByFormula(a, eps);
      CSRMatrixT<int, int> S;
      Ops::seq_strength(sparseOf(device, a), matrixOf(device, n, 1, diagonalOf(a)), S, eps);
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
    for (const std::string name :
         {"LevelTransferSmoothAggregation", "LevelTransferSmoothAggregationSeq"}) {
      const auto a = laplacian<T>(11, 9);
      const auto A = parSparseOf(device, a);
      const auto [P, R] = transferOf<T>(name, json::object(), A);
      const auto p = plainOf(P.getLocalMatrix(0));
      EXPECT_EQ(p, p.sorted());
      EXPECT_EQ(plainOf(R.getLocalMatrix(0)).sorted(), p.transposed());
      EXPECT_LT(P.getCols(), 33);
      EXPECT_EQ(P.getDevice().type, device.type);
      for (int i = 0; i < p.rows; ++i) {
        T rowSum(0), sum(0);
        for (const auto& [j, v] : a.row(i)) rowSum += v;
        for (const auto& [j, v] : p.row(i)) sum += v;
        EXPECT_TRUE(!isZero(rowSum) || abs(sum - T(1)) < 1e-6) << i;
      }
    }
  }
}

// Weak entries lie along one direction of the grid; the two forms part there and nowhere else.
TEST(SmoothAggregationForms, DifferInTheSignOfWeakEntriesOnly) {
  const auto grid = [](double weak) {
    return HostCsr<double>::build(48, 48, [&](int i, HostCsr<double>& out) {
      if (i >= 8) out.push(i - 8, weak);
      if (i % 8 > 0) out.push(i - 1, -1);
      out.push(i, 2.5);
      if (i % 8 < 7) out.push(i + 1, -1);
      if (i + 8 < 48) out.push(i + 8, weak);
    });
  };
  const auto difference = [&](double weak) {
    const json params = {{"aggregator", {{"aggregator_type", "AggregatorVMBSeq"}}}};
    const auto A = parSparseOf(Device(), grid(weak));
    const auto par = transferOf<double>("LevelTransferSmoothAggregation", params, A).first;
    const auto seq = transferOf<double>("LevelTransferSmoothAggregationSeq", params, A).first;
    const auto x = plainOf(par.getLocalMatrix(0)).dense();
    const auto y = plainOf(seq.getLocalMatrix(0)).dense();
    EXPECT_EQ(x.size(), y.size());
    double most = 0;
    for (std::size_t k = 0; k < x.size(); ++k) most = std::max(most, std::fabs(x[k] - y[k]));
    return most;
  };
  EXPECT_LT(difference(-0.9), 1e-15);
  EXPECT_GT(difference(-0.01), 1e-3);
}

TEST(SmoothAggregationForms, ReadTheirKeysAndTellWhatTheyDo) {
  const auto A = parSparseOf(Device(), laplacian<double>(6, 6));
  const auto sequential = [&] {
    transferOf<double>("LevelTransferSmoothAggregationSeq",
                       {{"relax", 1.5}, {"block_size", 3}, {"smooth", false}}, A, 3);
  };
  EXPECT_THAT(printed(sequential), testing::MatchesRegex("the P nnzs is [0-9]+\n"));

  const auto parallel = [&](bool verbose) {
    const auto P = transferOf<double>("LevelTransferSmoothAggregation",
                                      {{"smooth", false}, {"verbose", verbose}}, A, 2)
                       .first;
    for (int i = 0; i < 36; ++i) {
      EXPECT_EQ(plainOf(P.getLocalMatrix(0)).row(i).size(), 1u);
    }
  };
  EXPECT_EQ(printed([&] { parallel(false); }), "");
  EXPECT_THAT(printed([&] { parallel(true); }),
              testing::AllOf(HasSubstr("]    level" + MatrixMetaT<long>::getTableHead() + "\n"),
                             HasSubstr("]        2         36         36        156  ")));

  // No unknown is coupled: P has rows and no columns.
  const auto P =
      transferOf<double>("LevelTransferSmoothAggregation", {{"eps_strong", 9.0}}, A).first;
  EXPECT_EQ(P.getRows(), 36);
  EXPECT_EQ(P.getCols(), 0);
  // Nor does a level without rows, where there is no least size, end anything but the hierarchy.
  const auto amg =
      makeAmg<double>({{"min_coarse_size", -1},
                       {"level_transfer",
                        {{"level_transfer_type", "LevelTransferSmoothAggregation"},
                         {"LevelTransferSmoothAggregation_params", {{"eps_strong", 9.0}}}}},
                       {"pre_smoother", smootherOf("SmootherJacobi")},
                       {"post_smoother", smootherOf("SmootherJacobi")}});
  amg->setup(A);
  EXPECT_EQ(amg->levels.size(), 2u);
  MIVO_EXPECT_FATAL_TEXT(
      transferOf<double>("LevelTransferSmoothAggregation",
                         {{"aggregator", {{"aggregator_type", "AggregatorVBM"}}}}, A),
      R"(LevelTransferSmoothAggregation: "aggregator" should be an object with a known )"
      R"("aggregator_type", found {"aggregator_type":"AggregatorVBM"})");

  // eps_strong / 8 on level 3.
  MIVO_EXPECT_PRINTED_AT(
      "3", sequential(),
      testing::AllOf(HasSubstr("] size 36, eps_strong 0.01, block_size  3 relax 1.5, omega 1\n\n"),
                     HasSubstr("] finish strength: 36 36 156\n\n"),
                     HasSubstr("] finish aggregate: ")));
  MIVO_EXPECT_PRINTED_AT(
      "3", parallel(false),
      testing::AllOf(
          HasSubstr("] Begin get the P for  Interpolator A: 36x36\n\n"),
          HasSubstr("] >>>>send_data_all myrank 0, n_undone 36, rows 36\n"),
          testing::ContainsRegex("\\] gather_count is \\[[0-9]+\\], count is [0-9]+\n")));
}

// The flag has no key; what stays is the Galerkin product.
TEST(SmoothAggregationForms, KeepTheirWorkOnRequest) {
  SeqLevelTransferSmoothAggregation_T<double, long, int> transfer;
  transfer.create(json());
  EXPECT_EQ(transfer.aggregator_parameters["aggregator_type"], "AggregatorVMBSeq");
  EXPECT_EQ(transfer.children.front()->role, "aggregator");
  transfer.keep = true;
  const auto A = parSparseOf(Device(), laplacian<double>(7, 5));
  ParSparse<double> P, R;
  transfer.transfer_operators(A, P, R);
  ASSERT_NE(transfer.impl, nullptr);
  expectNear(plainOf(transfer.impl->Ac).dense(),
             plainOf(R.multiply(A).multiply(P).getLocalMatrix(0)).dense());
  transfer.keep = false;
  transfer.transfer_operators(A, P, R);
  EXPECT_EQ(transfer.impl, nullptr);
}

}  // namespace
}  // namespace mivo::test
