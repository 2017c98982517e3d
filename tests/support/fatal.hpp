// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

/// The statement ends the process with exit code 1, and all that it prints is one line of a failed
/// check: the prefix of a world of one, "source:line] " and the text. The prefix stands in `where`,
/// as in "Matrix:436"; for a check whose place in the source is free use MIVO_EXPECT_FATAL_TEXT,
/// which compares what follows "] ".
#define MIVO_EXPECT_FATAL(statement, where, text) \
  EXPECT_EXIT(                                    \
      {                                           \
        ::mivo::test::stdoutToStderr();           \
        statement;                                \
      },                                          \
      testing::ExitedWithCode(1),                 \
      testing::Eq("I 0/1 " + std::string(where) + "] " + std::string(text) + "\n"))

#define MIVO_EXPECT_FATAL_TEXT(statement, text) \
  EXPECT_EXIT(                                  \
      {                                         \
        ::mivo::test::stdoutToStderr();         \
        statement;                              \
      },                                        \
      testing::ExitedWithCode(1), testing::EndsWith("] " + std::string(text) + "\n"))

/// What a statement prints on standard output with MIVO_VERBOSE_LEVEL at `level`: in a child that
/// starts anew, since a process reads the level once. What stands before it in the test runs in the
/// child too; the variable stays set, for what has not read it by then.
#define MIVO_EXPECT_PRINTED_AT(level, statement, matcher) \
  do {                                                    \
    testing::FLAGS_gtest_death_test_style = "threadsafe"; \
    setenv("MIVO_VERBOSE_LEVEL", level, 1);               \
    EXPECT_EXIT(                                          \
        {                                                 \
          ::mivo::test::stdoutToStderr();                 \
          statement;                                      \
          std::exit(0);                                   \
        },                                                \
        testing::ExitedWithCode(0), matcher)              \
        << "level " << level;                             \
  } while (false)

namespace mivo::test {

/// Log lines go to standard output, while the death tests look at standard error. What stands in
/// the buffer from before, such as the greeting of a child that starts anew, keeps its way.
inline void stdoutToStderr() {
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

}  // namespace mivo::test
