// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <sstream>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/CSRMatrix.hpp"
#include "tests/support/sparse.hpp"

// Part of a test program that sets the strict switch for its whole run.

namespace mivo {
namespace {

using test::plainOf;
using test::plainRows;
using test::sparseOf;
using C = Complex<double>;

TEST(CSRMatrixFileStrict, ComplexEntriesAreTwoNumbersAndKeepTheirSign) {
  const auto plain = plainRows<C>(2, {{{1, C(1, -2)}}, {{0, C(-0.5, 4)}}});
  std::stringstream text;
  sparseOf(Device(), plain).saveToStream(text, 1);
  EXPECT_EQ(text.str(),
            "%%MatrixMarket matrix coordinate complex general\n2 2 2\n"
            "1 2 1.0e+00 -2.0e+00\n2 1 -5.0e-01 4.0e+00\n");
  CSRMatrixT<C, int> m;
  m.loadFromStream(text);
  EXPECT_EQ(plainOf(m), plain);
}

TEST(CSRMatrixFileStrict, MirroredValuesAreNotConjugated) {
  std::istringstream text("%%MatrixMarket matrix coordinate complex symmetric\n2 2 1\n2 1 3 -4\n");
  COOMatrixT<C, long, long> m;
  m.loadFromStream(text);
  EXPECT_EQ((*m.getRowEx(1))[0], C(3, -4));
  EXPECT_EQ((*m.getRowEx(0))[1], C(3, -4));
}

}  // namespace
}  // namespace mivo
