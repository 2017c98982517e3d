// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <iostream>

/// The statement ends the process by the library's fatal path: exit code 1, and a line on standard
/// output that matches the pattern (a POSIX extended regular expression).
#define MIVO_EXPECT_FATAL(statement, pattern)                     \
  EXPECT_EXIT(                                                    \
      {                                                           \
        std::cout.rdbuf(std::cerr.rdbuf()); /* what is matched */ \
        statement;                                                \
      },                                                          \
      ::testing::ExitedWithCode(1), pattern)
