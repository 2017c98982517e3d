// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// What is fuzzed. Each target takes any bytes, and ends the process only for a fault: what the
// library refuses by a fatal check, or by an exception that it is documented to raise, is fine. A
// target also checks properties that hold for every input.

namespace mivo::fuzz {

/// A sparse matrix file, read by the library and looked over by the driver.
void coordinateFile(const std::string& input);
/// A dense matrix file, the same way.
void denseFile(const std::string& input);
/// The name of a device.
void deviceText(const std::string& input);
/// `stringSplit` and `stringSplitExt`: the first line is a regular expression, the rest a text.
void textHelpers(const std::string& input);
/// A configuration of mivo-solve; lines behind one that is "---" are `--set` options.
void configuration(const std::string& input);

struct Target {
  const char* name;
  void (*run)(const std::string& input);
};

constexpr Target kTargets[] = {
    {"coordinate", coordinateFile},   {"dense", denseFile},
    {"device", deviceText},           {"text", textHelpers},
    {"configuration", configuration},
};

}  // namespace mivo::fuzz
