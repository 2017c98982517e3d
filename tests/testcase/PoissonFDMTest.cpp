// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "mivo/testcase/DofMapND.hpp"
#include "mivo/testcase/PoissonFDM.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/poisson.hpp"

namespace mivo::test {
namespace {

TEST(DofMapND, NumbersTheFirstCoordinateFastest) {
  const DofMapND<double, long> map({3, 4, 5});
  EXPECT_EQ(map.getStrides(), (std::vector<long>{1, 3, 12, 60}));
  EXPECT_EQ(map.getSize(), 60);
  EXPECT_EQ(map.getDim(), 3);
  EXPECT_EQ(map.grid2idx({2, 1, 3}), 2 + 3 + 36);
  long expected = 0;
  std::vector<long> grid;
  for (long k = 0; k < 5; ++k) {
    for (long j = 0; j < 4; ++j) {
      for (long i = 0; i < 3; ++i, ++expected) {
        map.idx2grid(expected, grid);
        EXPECT_EQ(grid, (std::vector<long>{i, j, k}));
        EXPECT_EQ(map.grid2idx(grid), expected);
      }
    }
  }
  EXPECT_EQ((DofMapND<double, int>({}).getSize()), 1);
  MIVO_EXPECT_FATAL_TEXT((DofMapND<double, int>({50000, 50000})),
                         "DofMapND: the number of grid points exceeds the index type");
}

/// The three results by nested loops over the grid, without numbering helpers.
struct Reference {
  std::vector<double> A, x, b;

  Reference(int dim, int N) {
    int n = 1;
    for (int k = 0; k < dim; ++k) n *= N;
    const auto size = static_cast<std::size_t>(n);
    A.assign(size * size, 0.0);
    const double h = 1.0 / N;
    for (int i = 0; i < n; ++i) {
      const std::size_t row = static_cast<std::size_t>(i) * size;
      bool boundary = false;
      double s = 1;
      int stride = 1;
      for (int k = 0; k < dim; ++k, stride *= N) {
        const int g = i / stride % N;
        boundary = boundary || g == 0 || g == N - 1;
        s *= std::sin(3.141592653589793 * (g * h));
      }
      stride = 1;
      for (int k = 0; k < dim && !boundary; ++k, stride *= N) {
        A[row + static_cast<std::size_t>(i)] += 2 / (h * h);
        A[row + static_cast<std::size_t>(i - stride)] += -1 / (h * h);
        A[row + static_cast<std::size_t>(i + stride)] += -1 / (h * h);
      }
      if (boundary) A[row + static_cast<std::size_t>(i)] = 1;
      x.push_back(s);
      b.push_back(boundary ? 0 : dim * 3.141592653589793 * 3.141592653589793 * s);
    }
  }
};

template <class T>
std::vector<T> convert(const std::vector<double>& values) {
  return std::vector<T>(values.begin(), values.end());
}

template <class T, class G>
void expectReference(const Device& device) {
  for (const auto& [dim, N] : std::vector<std::pair<int, int>>{
           {1, 1}, {1, 2}, {1, 7}, {2, 1}, {2, 3}, {2, 6}, {3, 2}, {3, 4}, {3, 5}, {4, 3}}) {
    const Poisson<T, G> s({{"dim", dim}, {"N", N}}, device);
    const Reference reference(dim, N);
    EXPECT_EQ(plainOf(s.A.getLocalMatrix(-1)).dense(), convert<T>(reference.A))
        << "dim " << dim << ", N " << N;
    EXPECT_EQ(valuesOf(s.x), convert<T>(reference.x));
    EXPECT_EQ(valuesOf(s.b), convert<T>(reference.b));
    EXPECT_EQ(s.A.getDevice(), device);
    EXPECT_EQ(s.x.getDevice(), device);
    EXPECT_EQ(s.b.getDevice(), device);
  }
}

TEST(PoissonFDM, IsTheFiniteDifferenceLaplacian) {
  for (const Device& device : testDevices()) {
    expectReference<double, long>(device);
    expectReference<double, int>(device);
    expectReference<Complex<double>, long>(device);
    expectReference<Complex<double>, int>(device);
  }
}

TEST(PoissonFDM, HasRandomAndUnsetRightHandSides) {
  const Poisson<double> s(json{{"N", 8}, {"rhs", "random"}});
  const auto b = valuesOf(s.b);
  int distinct = 0;
  for (int i = 0; i < 64; ++i) {
    const int g = i % 8, h = i / 8;
    const double v = b[static_cast<std::size_t>(i)];
    if (g == 0 || g == 7 || h == 0 || h == 7) {
      EXPECT_EQ(v, 0);
    } else {
      EXPECT_TRUE(v >= 0 && v < 1) << v;
      if (v != b[9]) ++distinct;
    }
  }
  EXPECT_EQ(distinct, 35) << "all inner values but the first one itself";
  EXPECT_EQ(valuesOf(s.x), std::vector<double>(64, 0.0));

  const Poisson<double> other(json{{"N", 8}, {"rhs", "none"}});
  EXPECT_EQ(other.b.getRows(), 64);
  EXPECT_EQ(other.x.getRows(), 64);
  EXPECT_EQ(other.A.getNnzs(), s.A.getNnzs());
}

TEST(PoissonFDM, TakesDegenerateGrids) {
  const Poisson<double> point(json{{"dim", 0}});
  EXPECT_EQ(point.A.getRows(), 1);
  EXPECT_EQ(point.A.getNnzs(), 0);
  EXPECT_EQ(valuesOf(point.x), std::vector<double>{1}) << "an empty product";
  EXPECT_EQ(valuesOf(point.b), std::vector<double>{0});
  const Poisson<double> nothing(json{{"N", 0}});
  EXPECT_EQ(nothing.A.getRows(), 0);
  EXPECT_EQ(nothing.b.getRows(), 0);
  MIVO_EXPECT_FATAL_TEXT(Poisson<double>(json{{"N", -3}}),
                         "PoissonFDM: dim 2 and N -3 must not be negative");
}

TEST(PoissonFDM, TracesItsStepsAtLevelThree) {
  const auto generate = [](const json& params) {
    PoissonFDM_T<double, long, int> problem;
    problem.create(params);
    ParCSRMatrixT<double, long, int> A;
    ParMatrixT<double, long, int> x, b;
    problem.generate(A, x, b);
  };
  // The assembly of A has a line of its own in between; a random b is not assembled.
  const std::string start =
      "^I 0/1 TestCase:45\\] Begin assembling poission A and b, size \\[3, 3\\]\n"
      "I 0/1 TestCase:81\\] finish add values to A\n(I 0/1 [^\n]*\\] begin coo to csr\n)?"
      "I 0/1 TestCase:85\\] finish assemble to A\n";
  const std::string rhs =
      "I 0/1 TestCase:109\\] finish add values to b\nI 0/1 TestCase:114\\] finish assemble to b\n";
  const std::string end =
      "I 0/1 TestCase:138\\] End assembling poisson A and b\nI 0/1 TestCase:140\\] A nnz 13\n$";
  const json plain = {{"N", 3}}, random = {{"N", 3}, {"rhs", "random"}};
  MIVO_EXPECT_PRINTED_AT("3", generate(plain), testing::ContainsRegex(start + rhs + end));
  MIVO_EXPECT_PRINTED_AT("3", generate(random), testing::ContainsRegex(start + end));
  MIVO_EXPECT_PRINTED_AT("2", generate(plain), testing::Eq(""));
}

}  // namespace
}  // namespace mivo::test
