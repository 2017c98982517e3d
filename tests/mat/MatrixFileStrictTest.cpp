// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "mivo/mat/Matrix.hpp"
#include "tests/support/dense.hpp"
#include "tests/support/files.hpp"

// The switch is read once in a process, so the strict form has a test program of its own.

namespace mivo::test {
namespace {

using C = Complex<double>;

[[maybe_unused]] const int gs_strict = setenv("MIVO_STRICT_MATRIX_MARKET", "1", 1);

TEST(MatrixFileStrict, WritesOneValueALineRowByRow) {
  EXPECT_EQ(savedText(matrixOf<double>(Device(), 2, 2, {1, 2, 3, 4}), 1),
            "%%MatrixMarket matrix array real general\n2 2\n"
            "1.0e+00\n2.0e+00\n3.0e+00\n4.0e+00\n");
}

TEST(MatrixFileStrict, ComplexValuesAreTwoNumbersAndKeepTheirSign) {
  const MatrixT<C, int> m = matrixOf<C>(Device(), 1, 2, {{1, -2}, {-0.5, 4}});
  const std::string text = savedText(m, 1);
  EXPECT_EQ(text,
            "%%MatrixMarket matrix array complex general\n1 2\n"
            "1.0e+00 -2.0e+00\n-5.0e-01 4.0e+00\n");
  EXPECT_EQ(valuesOf(loadedText<MatrixT<C, int>>(text)), valuesOf(m));

  const std::string path = tempFile("strict.raw");
  m.saveToFile(path, 1);
  EXPECT_EQ(readFile(path), "2\n1.0e+00 -2.0e+00\n-5.0e-01 4.0e+00\n");
}

}  // namespace
}  // namespace mivo::test
