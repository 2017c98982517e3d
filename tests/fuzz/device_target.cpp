// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>

#include "mivo/utils/Device.hpp"
#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/targets.hpp"

namespace mivo::fuzz {

void deviceText(const std::string& input) {
  try {
    const Device device(input);
    require(Device(device.getString()) == device, "a device's own text names the same device");
    require(device == Device() || input.compare(0, device.name.size(), device.name) == 0,
            "the kind of a device is that of its text");
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
}

}  // namespace mivo::fuzz
