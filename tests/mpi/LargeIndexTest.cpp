// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

// A handful of rows far out in a range that 32 bits cannot number: all that a rank allocates goes
// by its own rows.
TEST(LargeIndices, RowsAboveTwoToThe32AreAssembledAndMultiplied) {
  constexpr long kSize = 1L << 33;
  constexpr long kFirst = (1L << 32) + 5;
  constexpr long kRows = 7;
  std::vector<long> offsets{kFirst};
  for (int r = 1; r < worldSize(); ++r) offsets.push_back(kFirst + 4 + r - 1);
  offsets.push_back(kFirst + kRows);
  PartitionerT<long, int> part;
  part.create(kSize, offsets);
  const auto next = [](long i) { return (i + 1) % kRows; };
  for (const Device& device : rankDevices()) {
    ParCSRMatrixT<double, long, int> A;
    A.create(part, part, {}, device, kCommWorld);
    A.beginAssemble();
    // Each rank sets rows of all ranks.
    for (long i = worldRank(); i < kRows; i += worldSize()) {
      A.setValue(kFirst + i, kFirst + i, 4.0 + static_cast<double>(i), SetValueMode::Set);
      A.setValue(kFirst + i, kFirst + next(i), -1.0 - static_cast<double>(i), SetValueMode::Set);
    }
    A.endAssemble();
    EXPECT_EQ(A.getRows(), kSize);
    EXPECT_EQ(A.getNnzs(), 2 * kRows);

    ParMatrixT<double, long, int> x, y;
    x.create(part, device, kCommWorld);
    y.create(part, device, kCommWorld);
    x.beginAssemble();
    for (long i = 0; i < kRows && worldRank() == 0; ++i) {
      x.setValue(kFirst + i, static_cast<double>(i + 1), SetValueMode::Set);
    }
    x.endAssemble();
    A.aAxpby(1.0, x, 0.0, y, nullptr);
    const auto diagonal = A.getDiag();
    long begin = 0, end = 0;
    A.getOwnerShipRange(&begin, &end);
    ASSERT_LT(begin, end);
    for (long i = begin - kFirst; i < end - kFirst; ++i) {
      const double d = 4.0 + static_cast<double>(i);
      const double e = -1.0 - static_cast<double>(i);
      EXPECT_EQ(y.getElementValue(kFirst + i, 0, nullptr),
                d * static_cast<double>(i + 1) + e * static_cast<double>(next(i) + 1));
      EXPECT_EQ(A.getElementValue(kFirst + i, kFirst + next(i), nullptr), e);
      EXPECT_EQ(diagonal.getElementValue(kFirst + i, 0, nullptr), d);
    }
  }
}

}  // namespace
}  // namespace mivo::test
