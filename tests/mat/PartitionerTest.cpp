// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "mivo/mat/Partitioner.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"

namespace mivo {
namespace {

using Partitioner = PartitionerT<long, int>;

Partitioner evenSplit(long globalSize, int numParts) {
  Partitioner part;
  part.create(globalSize, numParts);
  return part;
}

TEST(Partitioner, EvenSplitGivesRemainderToLowestParts) {
  EXPECT_EQ(evenSplit(10, 4).getOffsets(), (std::vector<long>{0, 3, 6, 8, 10}));
  EXPECT_EQ(evenSplit(3, 5).getOffsets(), (std::vector<long>{0, 1, 2, 3, 3, 3}));
  EXPECT_EQ(evenSplit(7, 1).getOffsets(), (std::vector<long>{0, 7}));
  const Partitioner large = evenSplit(10'000'000'001, 4);
  EXPECT_EQ(large.getOffsets()[1], 2'500'000'001);
  EXPECT_EQ(large.getOffsets()[4], 10'000'000'001);
  EXPECT_EQ(large.getLocalSizeForPart(0), static_cast<int>(2'500'000'001));
}

TEST(Partitioner, EmptySplitHasNoOffsetsAndEmptyRanges) {
  const Partitioner none;
  EXPECT_EQ(none.getNumParts(), 0);
  EXPECT_EQ(none.getGlobalSize(), 0);
  EXPECT_TRUE(none == Partitioner());

  const Partitioner parts = evenSplit(0, 3);
  EXPECT_EQ(parts.getNumParts(), 3);
  EXPECT_TRUE(parts.getOffsets().empty());
  long begin = -1, end = -1;
  parts.getOwnerShipRangeForPart(2, &begin, &end);
  EXPECT_EQ(begin, 0);
  EXPECT_EQ(end, 0);
  EXPECT_EQ(parts.getLocalSizeForPart(2), 0);
  EXPECT_TRUE(parts != none);

  EXPECT_EQ(evenSplit(5, 0).getNumParts(), 0);
  EXPECT_EQ(evenSplit(5, 0).getGlobalSize(), 5);
  EXPECT_TRUE(evenSplit(5, 0).getOffsets().empty());
}

TEST(Partitioner, OwnerSearchFindsThePartThatHoldsTheIndex) {
  Partitioner uneven;
  uneven.create(9, std::vector<long>{0, 0, 4, 4, 4, 9, 9});
  for (const Partitioner& part : {evenSplit(10, 4), evenSplit(3, 5), uneven}) {
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
  EXPECT_EQ(Partitioner::firstGreaterOrEqual({0, 1, 2, 3, 3, 3}, 2), 2);
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
  Partitioner part;
  part.create(100, std::vector<long>{0, 10, 20});
  EXPECT_EQ(part.getNumParts(), 2);
  EXPECT_EQ(part.getGlobalSize(), 100);
  EXPECT_EQ(part.getLocalSizeForPart(1), 10);

  Partitioner other;
  other.create(20, std::vector<long>{0, 10, 20});
  EXPECT_TRUE(part != other);
  EXPECT_TRUE(other == evenSplit(20, 2));
  const Partitioner handle = other;
  other.create(20, std::vector<long>{0, 9, 20});
  EXPECT_TRUE(other != evenSplit(20, 2));
  EXPECT_TRUE(handle == evenSplit(20, 2)) << "create moves one handle only";
  other.create(21, other.getOffsets());
  EXPECT_EQ(other.getOffsets(), (std::vector<long>{0, 9, 20})) << "its own offsets";
}

}  // namespace
}  // namespace mivo
