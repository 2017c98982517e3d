// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace mivo::test {

/// Path in the folder for temporary files.
inline std::string tempFile(const std::string& name) { return testing::TempDir() + name; }

/// The whole content; empty for a file that cannot be opened.
inline std::string readFile(const std::string& path) {
  std::ifstream file(path);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace mivo::test
