// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "mivo/mat/COOMatrix.hpp"
#include "tests/support/files.hpp"
#include "tests/support/sparse.hpp"

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
  std::string text = savedText(m, 1);
  EXPECT_EQ(text,
            "%%MatrixMarket matrix array complex general\n1 2\n"
            "1.0e+00 -2.0e+00\n-5.0e-01 4.0e+00\n");
  EXPECT_EQ(valuesOf(loadedText<MatrixT<C, int>>(text)), valuesOf(m));
  const std::string path = tempFile("strict.raw");
  m.saveToFile(path, 1);
  EXPECT_EQ(readFile(path), "2\n1.0e+00 -2.0e+00\n-5.0e-01 4.0e+00\n");

  const auto plain = plainRows<C>(2, {{{1, C(1, -2)}}, {{0, C(-0.5, 4)}}});
  text = savedText(sparseOf(Device(), plain), 1);
  EXPECT_EQ(text,
            "%%MatrixMarket matrix coordinate complex general\n2 2 2\n"
            "1 2 1.0e+00 -2.0e+00\n2 1 -5.0e-01 4.0e+00\n");
  EXPECT_EQ(plainOf(loadedText<CSRMatrixT<C, int>>(text)), plain);
  // Mirrored values are not conjugated.
  auto mirrored = loadedText<COOMatrixT<C, long, long>>(
      "%%MatrixMarket matrix coordinate complex symmetric\n2 2 1\n2 1 3 -4\n");
  EXPECT_EQ((*mirrored.getRowEx(1))[0], C(3, -4));
  EXPECT_EQ((*mirrored.getRowEx(0))[1], C(3, -4));
}

}  // namespace
}  // namespace mivo::test
