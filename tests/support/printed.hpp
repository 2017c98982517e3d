// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <iostream>
#include <string>

namespace mivo::test {

/// What `action` writes to standard output, with the stream in its default format at the start.
inline std::string printed(const std::function<void()>& action) {
  std::cout.flags(std::ios_base::dec | std::ios_base::skipws);
  std::cout.precision(6);
  testing::internal::CaptureStdout();
  action();
  std::cout.flush();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

}  // namespace mivo::test
