// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iostream>
#include <streambuf>
#include <string>

#include "mivo/utils/export.hpp"

namespace mivo {

/// Swallows every character.
class MIVO_API NullBuffer : public std::streambuf {
 public:
  int overflow(int c) override { return c; }
};

/// Output stream for messages that are switched off.
class MIVO_API NullStream : public std::ostream {
 public:
  NullStream() : std::ostream(&buffer_) {}

 private:
  NullBuffer buffer_;
};

MIVO_API extern NullStream gs_null_stream;

/// One log line "I rank/size file:line] text", or one assertion. The text goes to `stream()`
/// between construction and destruction; the destructor ends the line and flushes. A failing
/// assertion then ends the process with exit code 1: this is the library's one fatal path.
///
/// The object is silent when an assertion holds or a plain message's condition is false. Use the
/// macros below, which build it only when there is something to print.
class MIVO_API LogMessage {
 public:
  /// `stream` null means standard output. `level` is stored only. Directories of `file` are
  /// dropped.
  LogMessage(bool check, int level, int condition, const std::string& file, int line,
             std::ostream* stream);
  ~LogMessage();
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;

  std::ostream& stream() { return *stream_; }

 private:
  std::ostream* stream_;
  bool check_;
  [[maybe_unused]] int level_;  // carried for readers in a debugger
  int condition_;
  std::string file_;
  int line_;
};

namespace detail {
/// Lets the conditional operator below swallow a stream expression.
struct LogVoidify {
  void operator&(std::ostream&) {}
};
}  // namespace detail
}  // namespace mivo

/// Assertion with a source name and line that are part of the printed text. Costs one branch when
/// it holds; the text behind it is then not evaluated.
#define MIVO_CHECK_AT(condition, source, line)      \
  __builtin_expect(static_cast<bool>(condition), 1) \
      ? (void)0                                     \
      : ::mivo::detail::LogVoidify() &              \
            ::mivo::LogMessage(true, 3, 0, source, line, nullptr).stream()

#define MIVO_CHECK(condition) MIVO_CHECK_AT(condition, __FILE__, __LINE__)

/// Plain message, printed when `condition` is true.
#define MIVO_LOG_AT(level, condition, source, line) \
  !(condition) ? (void)0                            \
               : ::mivo::detail::LogVoidify() &     \
                     ::mivo::LogMessage(false, level, 1, source, line, nullptr).stream()

#define MIVO_LOG(level, condition) MIVO_LOG_AT(level, condition, __FILE__, __LINE__)
