// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "mivo/testcase/MatrixMarket.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/operators.hpp"

namespace mivo::test {
namespace {

/// A file that goes away at the end of the scope.
class File {
 public:
  File(const std::string& name, const std::string& text)
      : path(testing::TempDir() + "mivo_" + std::to_string(getpid()) + "_" + name) {
    std::ofstream(path) << text;
  }
  ~File() { std::remove(path.c_str()); }
  const std::string path;
};

const char* const kA =
    "%%MatrixMarket matrix coordinate real general\n3 3 4\n1 1 2\n2 2 3\n3 1 -1\n3 3 4\n";
const char* const kComplexA =
    "%%MatrixMarket matrix coordinate complex general\n2 2 2\n1 1 1+j2\n2 2 3\n";
const char* const kB = "%%MatrixMarket matrix array real general\n3 1\n5\n6\n7\n";
const char* const kX = "%%MatrixMarket matrix array real general\n3 1\n1\n0\n-1\n";

template <class T>
struct System {
  ParCSRMatrixT<T, long, int> A;
  ParMatrixT<T, long, int> x, b;

  System(const json& params, const Device& device) {
    const auto problem = TestCaseT<T, long, int>::getFactory().createInstance(
        {{"testcase_type", "MatrixMarket"}, {"MatrixMarket_params", params}});
    problem->setDeviceAndComm(device, kCommWorld);
    EXPECT_EQ(problem->size, 1);
    problem->generate(A, x, b);
    EXPECT_EQ(A.getDevice(), device);
  }
  std::vector<T> dense() const { return plainOf(A.getLocalMatrix(-1)).dense(); }
};

TEST(MatrixMarket, ReadsWhatIsNamed) {
  using Z = Complex<double>;
  const File A("A.mtx", kA), b("b.mtx", kB), x("x.mtx", kX), complexA("cA.mtx", kComplexA);
  for (const Device& device : testDevices()) {
    const System<double> full(
        {{"filename_A", A.path}, {"filename_b", b.path}, {"filename_x", x.path}}, device);
    EXPECT_EQ(full.dense(), (std::vector<double>{2, 0, 0, 0, 3, 0, -1, 0, 4}));
    EXPECT_EQ(valuesOf(full.b), (std::vector<double>{5, 6, 7}));
    EXPECT_EQ(valuesOf(full.x), (std::vector<double>{1, 0, -1}));
    EXPECT_EQ(full.b.getDevice(), device);

    const System<double> alone({{"filename_A", A.path}}, device);
    EXPECT_EQ(alone.A.getNnzs(), 4);
    EXPECT_EQ(alone.b.getRows() + alone.x.getRows(), 0);
    EXPECT_EQ(System<Z>({{"filename_A", complexA.path}}, device).dense(),
              (std::vector<Z>{Z(1, 2), Z(0), Z(0), Z(3)}));
  }
}

TEST(MatrixMarket, NamesItsFilesAtLevelThree) {
  const File A("A3.mtx", kA), b("b3.mtx", kB), x("x3.mtx", kX);
  const auto generate = [&] {
    MatrixMarket_T<double, long, int> problem;
    problem.filename_A = A.path;
    problem.filename_b = b.path;
    problem.filename_x = x.path;
    ParCSRMatrixT<double, long, int> matrix;
    ParMatrixT<double, long, int> start, rhs;
    problem.generate(matrix, start, rhs);
  };
  MIVO_EXPECT_PRINTED_AT(
      "3", generate(),
      testing::ContainsRegex("^I 0/1 TestCase:156\\] Load A from [^\n]*A3.mtx\n"
                             "I 0/1 TestCase:160\\] Load x from [^\n]*x3.mtx\n"
                             "I 0/1 TestCase:164\\] Load b from [^\n]*b3.mtx\n$"));
}

}  // namespace
}  // namespace mivo::test
