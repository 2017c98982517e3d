// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "configuration.hpp"

namespace mivo_solve {

/// Standard output of the program. With `--json` it belongs to one line, which comes at every end
/// of a run but that by a signal: all other text goes to standard error, and where the
/// library ends the process, its last line is the error that the JSON line tells. One object, made
/// before anything is printed.
class Output {
 public:
  /// A standard stream that is closed becomes /dev/null, so that no file takes its number.
  explicit Output(bool asJson);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void setRank(int rank) { rank_ = rank; }
  /// Standard output was closed when the program began.
  bool wasClosed() const { return wasClosed_; }
  /// Standard output is for text that was asked for in place of a report: no JSON line comes.
  void giveBack();
  /// Prints the JSON line, at most one in the life of the program.
  void printLine(const json& line);
  /// The JSON line of an end in status 1. Ranks other than 0 hold back for as long as rank 0 takes
  /// to end by itself, which ends them too.
  void printFault(const std::string& text);
  /// `printFault` where no memory is left for it: `text` needs no escape and takes at most some 200
  /// characters.
  static void printUncaught(const char* text);
  /// The end without a fault of this rank. Writes what is left; false when not all text could be
  /// written.
  bool finish();

 private:
  bool wasClosed_ = false;
  int rank_ = 0;
  int own_ = -1;  ///< the real standard output while text goes to standard error
};

}  // namespace mivo_solve
