// SPDX-License-Identifier: Apache-2.0

// Part of every test program of a build with CUDA: tells in the report whether its suites, which
// take the devices that they find, have met one.

#include <gtest/gtest.h>

#include "tests/support/devices.hpp"

namespace {

TEST(MIVO_TEST_PROGRAM, RunsOnACudaDevice) {
  const auto devices = mivo::test::testDevices();
  if (devices.size() < 2) GTEST_SKIP() << "no CUDA device: the suites run on the host alone";
  mivo::test::DeviceArray<int> x(devices[1], std::vector<int>{1, 2, 3});
  EXPECT_EQ(x.values(), (std::vector<int>{1, 2, 3}));
}

}  // namespace
