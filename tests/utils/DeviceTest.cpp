// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <tuple>

#include "mivo/spm/impls/OpenMP.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/memory.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/printed.hpp"

namespace mivo::test {
namespace {

TEST(Device, ParsesKindAndOrdinal) {
  for (const auto& [text, type, id, spelled] : {std::tuple("cpu", 0, 0, "cpu:0"),
                                                {"cuda:1", 1, 1, "cuda:1"},
                                                {"cuda", 1, 0, "cuda:0"},
                                                {"hip:3", 2, 3, "hip:3"},
                                                {"cuda:1x", 1, 1, "cuda:1"},
                                                {"cpu:2", 0, 2, "cpu:2"},
                                                {"cuda:2:5", 1, 2, "cuda:2"}}) {
    const Device device{std::string(text)};
    EXPECT_EQ(device.type, type) << text;
    EXPECT_EQ(device.id, id) << text;
    EXPECT_EQ(device.getString(), spelled);
  }
  EXPECT_EQ(Device::type_map, (std::map<std::string, int>{{"cpu", 0}, {"cuda", 1}, {"hip", 2}}));
}

TEST(Device, UnknownKindPrintsALineAndBecomesTheHost) {
  for (const char* text : {"tpu:3", "foo", "CUDA:1", ""}) {
    Device device(1, 4);
    EXPECT_EQ(printed([&] { device = Device(std::string(text)); }),
              "unrecognized device type: cpu\n");
    EXPECT_EQ(device, Device());
    EXPECT_EQ(device.getString(), "cpu:0");
  }
}

TEST(Device, OrdinalThatIsNoNumberRaisesTheExceptionOfTheConversion) {
  // Also for an unknown kind, since the ordinal is read first.
  for (const char* text : {"cuda:abc", "cuda:", "tpu:x"}) {
    try {
      const Device device{std::string(text)};
      FAIL() << text;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), "stoi");
    }
  }
  EXPECT_THROW(Device(std::string("cuda:2147483648")), std::out_of_range);
}

TEST(Device, UnknownNumberKeepsItsTypeUnderTheNameOfTheHost) {
  const Device device(7, 2);
  EXPECT_EQ(device.type, 7);
  EXPECT_EQ(device.id, 2);
  EXPECT_EQ(device.getString(), "cpu:2");
  EXPECT_EQ(printed([&] { EXPECT_EQ(device.rawMalloc(8), nullptr); }),
            "I 0/1 Device:114] unknown device type cpu:2\n");
  char from = 1, to = 2;
  device.rawCopyTo(1, &from, Device(), &to);
  Device().rawCopyTo(1, &from, device, &to);
  EXPECT_EQ(to, 2);
  device.rawFree(&from);
}

TEST(Device, KindsThatTheBuildLacksHaveNoMemory) {
  const auto lacks = [](const Device& device, const std::string& what) {
    EXPECT_EQ(printed([&] { EXPECT_EQ(device.rawMalloc(8), nullptr); }),
              "I 0/1 Device:110] device is " + what + " is not enabled\n");
  };
  lacks(Device(Device::kHip, 1), "hip:1 but HIP");
#ifndef MIVO_TEST_WITH_CUDA
  lacks(Device(Device::kCuda), "cuda:0 but CUDA");
  EXPECT_EQ(Device::getAllDevices(), std::vector<Device>{Device()});
#endif
  EXPECT_EQ(Device().getDeviceContext(), -1);
}

TEST(Device, OrdersByKindThenOrdinalWhateverTheName) {
  EXPECT_LT(Device(0, 5), Device(1, 0));
  EXPECT_LT(Device(1, 0), Device(1, 1));
  EXPECT_FALSE(Device(1, 1) < Device(1, 1));
  Device renamed(1, 1);
  renamed.name = "other";
  EXPECT_EQ(renamed, Device(1, 1));
}

TEST(Device, HostBlocksHoldTheirBytesAndGoBackThroughFree) {
  const Device host;
  const std::size_t mega = std::size_t(1) << 20;
  for (const std::size_t bytes : {std::size_t(1), mega, 2 * mega, 5 * mega + 3, 40 * mega + 3}) {
    void* p = host.rawMalloc(bytes);
    ASSERT_NE(p, nullptr);
    std::memset(p, 0x33, bytes);
    if (bytes >= 2 * mega) {
      const std::size_t alignment = bytes < 32 * mega ? 2 * mega : 64;
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignment, 0u);
    }
    std::free(p);
  }
  // A size that cannot be had gives null and does not wrap round.
  EXPECT_EQ(host.rawMalloc(~std::size_t(0)), nullptr);
  EXPECT_EQ(host.rawMalloc(~std::size_t(0) - 4000), nullptr);
  host.rawFree(nullptr);
}

TEST(Device, MemoryThatIsNeededAndRefusedEndsTheProcess) {
  for (const Device& device : testDevices()) {
    const std::size_t most = ~std::size_t(0);
    MIVO_EXPECT_FATAL_TEXT(
        detail::allocate<double>(device, most, "a vector"),
        "no memory for " + std::to_string(most) + " bytes on " + device.getString() + ": a vector");
    EXPECT_EQ(detail::allocate<double>(device, 0, "a vector"), nullptr);
  }
  EXPECT_EQ(printed([] { detail::allocate<int>(Device(Device::kHip), 1, "a vector"); }),
            "I 0/1 Device:110] device is hip:0 but HIP is not enabled\n");
}

TEST(Device, ReallocIsAFreshBlock) {
  const Device host;
  int* p = static_cast<int*>(host.rawMalloc(sizeof(int)));
  *p = 41;
  void* fresh = host.rawRealloc(p, 64);
  EXPECT_NE(fresh, p);
  EXPECT_EQ(*p, 41);
  host.rawFree(fresh);
  host.rawFree(p);
}

TEST(Device, CopiesBetweenAllPairsOfKindsThatHaveMemory) {
  for (const Device& from : testDevices()) {
    for (const Device& to : testDevices()) {
      DeviceArray<int> source(from, std::vector<int>{1, 2, 3});
      DeviceArray<int> target(to, std::vector<int>{7, 8, 9});
      from.rawCopyTo(2 * sizeof(int), source.data(), to, target.data());
      EXPECT_EQ(target.values(), (std::vector<int>{1, 2, 9}));
      from.rawCopyTo(0, nullptr, to, nullptr);
    }
  }
}

TEST(Device, RegistryFollowsInitializeAndFinalize) {
  Device::finalize();
  EXPECT_FALSE(spm::is_initialized());
  EXPECT_EQ(printed([] {
              const Device::DeviceInfo info = Device().getDeviceInfo();
              EXPECT_EQ(info.space, nullptr);
              EXPECT_EQ(info.stream, nullptr);
            }),
            "can not get dev info for: cpu\n");

  Device::initialize();
  EXPECT_TRUE(spm::is_initialized());
  const auto space = std::static_pointer_cast<spm::OpenMP>(Device().getDeviceInfo().space);
  ASSERT_NE(space, nullptr);
  EXPECT_EQ(space->threads, 1);
  EXPECT_EQ(Device::getDeviceInfoMap().size(), Device::getAllDevices().size());
  Device::initialize();
  EXPECT_EQ(Device().getDeviceInfo().space, space);

  Device::finalize();
  EXPECT_TRUE(Device::getDeviceInfoMap().empty());
  Device::initialize();
  EXPECT_NE(Device().getDeviceInfo().space, nullptr);
  EXPECT_EQ(printed([] { Device(2, 4).getDeviceInfo(); }), "can not get dev info for: hip\n");
}

}  // namespace
}  // namespace mivo::test
