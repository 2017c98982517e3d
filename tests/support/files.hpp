// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace mivo::test {

/// Path in the folder for temporary files.
inline std::string tempFile(const std::string& name) { return testing::TempDir() + name; }

/// The whole content; empty for a file that cannot be opened.
inline std::string readFile(const std::string& path) {
  std::ifstream file(path);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

template <class Matrix>
std::string savedText(const Matrix& m, int precision) {
  std::ostringstream os;
  m.saveToStream(os, precision);
  return os.str();
}

template <class Matrix>
Matrix loadedText(const std::string& text) {
  std::istringstream is(text);
  Matrix m;
  m.loadFromStream(is);
  return m;
}

}  // namespace mivo::test
