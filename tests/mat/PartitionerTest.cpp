// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/dense.hpp"
#include "tests/support/fatal.hpp"

namespace mivo::test {
namespace {

using Partitioner = PartitionerT<long, int>;
using Offsets = std::vector<long>;

Partitioner evenSplit(long globalSize, int numParts) {
  Partitioner part;
  part.create(globalSize, numParts);
  return part;
}

TEST(Partitioner, EvenSplitGivesRemainderToLowestParts) {
  EXPECT_EQ(evenSplit(10, 4).getOffsets(), (Offsets{0, 3, 6, 8, 10}));
  EXPECT_EQ(evenSplit(3, 5).getOffsets(), (Offsets{0, 1, 2, 3, 3, 3}));
  EXPECT_EQ(evenSplit(7, 1).getOffsets(), (Offsets{0, 7}));
  const Partitioner large = evenSplit(10'000'000'001, 4);
  EXPECT_EQ(large.getOffsets()[1], 2'500'000'001);
  EXPECT_EQ(large.getOffsets()[4], 10'000'000'001);
}

TEST(Partitioner, EmptySplitHasNoOffsetsAndEmptyRanges) {
  const Partitioner none, parts = evenSplit(0, 3), five = evenSplit(5, 0);
  EXPECT_EQ(none.getNumParts() + five.getNumParts(), 0);
  EXPECT_EQ(none.getGlobalSize(), 0);
  EXPECT_TRUE(none == Partitioner() && parts != none);
  EXPECT_EQ(parts.getNumParts(), 3);
  long begin = -1, end = -1;
  parts.getOwnerShipRangeForPart(2, &begin, &end);
  EXPECT_EQ(begin, 0);
  EXPECT_EQ(end, 0);
  EXPECT_EQ(parts.getLocalSizeForPart(2), 0);
  EXPECT_EQ(five.getGlobalSize(), 5);
  EXPECT_TRUE(parts.getOffsets().empty() && five.getOffsets().empty());
}

TEST(Partitioner, OwnerSearchFindsThePartThatHoldsTheIndex) {
  for (const Partitioner& part :
       {evenSplit(10, 4), evenSplit(3, 5), partsAt<long>({0, 0, 4, 4, 4, 9, 9})}) {
    for (long i = 0; i < part.getGlobalSize(); ++i) {
      int owner = -1, local = -1;
      part.global2Local(i, owner, local);
      long begin = 0, end = 0;
      part.getOwnerShipRangeForPart(owner, &begin, nullptr);
      part.getOwnerShipRangeForPart(owner, nullptr, &end);
      EXPECT_TRUE(begin <= i && i < end) << i << " in part " << owner;
      EXPECT_EQ(local, i - begin);
    }
  }
  EXPECT_EQ(Partitioner::firstGreaterOrEqual({0, 0, 4, 4, 9}, 4), 3);
}

TEST(Partitioner, OwnerSearchRefusesWhatLiesOutside) {
  Device::initialize();
  EXPECT_EQ(Partitioner::firstGreaterOrEqual({0, 3, 6}, 6), -1);
  EXPECT_EQ(Partitioner::firstGreaterOrEqual({4}, 4), -1);
  MIVO_EXPECT_FATAL_TEXT(Partitioner::firstGreaterOrEqual({0, 3, 6}, 7), "");
  MIVO_EXPECT_FATAL_TEXT(Partitioner::firstGreaterOrEqual({2, 3, 6}, 1), "");
  MIVO_EXPECT_FATAL_TEXT(Partitioner::firstGreaterOrEqual({}, 0), "");
}

TEST(Partitioner, ExplicitOffsetsAreTakenAsTheyStand) {
  Partitioner part, other;
  part.create(100, Offsets{0, 10, 20});
  EXPECT_EQ(part.getNumParts(), 2);
  EXPECT_EQ(part.getGlobalSize(), 100);
  EXPECT_EQ(part.getLocalSizeForPart(1), 10);
  other.create(20, Offsets{0, 10, 20});
  EXPECT_TRUE(part != other && other == evenSplit(20, 2));
  const Partitioner handle = other;
  other.create(20, Offsets{0, 9, 20});
  EXPECT_TRUE(other != evenSplit(20, 2));
  EXPECT_TRUE(handle == evenSplit(20, 2)) << "create moves one handle only";
  other.create(21, other.getOffsets());
  EXPECT_EQ(other.getOffsets(), (Offsets{0, 9, 20})) << "its own offsets";
}

}  // namespace
}  // namespace mivo::test
