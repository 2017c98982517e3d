// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/CSRMatrix.hpp"
#include "tests/support/files.hpp"
#include "tests/support/sparse.hpp"

// Part of a test program that sets the strict switch for its whole run.

namespace mivo::test {
namespace {

using C = Complex<double>;

TEST(CSRMatrixFileStrict, ComplexEntriesAreTwoNumbersAndKeepTheirSign) {
  const auto plain = plainRows<C>(2, {{{1, C(1, -2)}}, {{0, C(-0.5, 4)}}});
  const std::string text = savedText(sparseOf(Device(), plain), 1);
  EXPECT_EQ(text,
            "%%MatrixMarket matrix coordinate complex general\n2 2 2\n"
            "1 2 1.0e+00 -2.0e+00\n2 1 -5.0e-01 4.0e+00\n");
  EXPECT_EQ(plainOf(loadedText<CSRMatrixT<C, int>>(text)), plain);
}

TEST(CSRMatrixFileStrict, MirroredValuesAreNotConjugated) {
  auto m = loadedText<COOMatrixT<C, long, long>>(
      "%%MatrixMarket matrix coordinate complex symmetric\n2 2 1\n2 1 3 -4\n");
  EXPECT_EQ((*m.getRowEx(1))[0], C(3, -4));
  EXPECT_EQ((*m.getRowEx(0))[1], C(3, -4));
}

}  // namespace
}  // namespace mivo::test
