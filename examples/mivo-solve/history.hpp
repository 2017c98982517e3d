// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fstream>
#include <string>

namespace mivo_solve {

/// CSV file with one row per logged iteration. Without a name nothing is written, but rows count.
class History {
 public:
  explicit History(const std::string& path);
  void row(int iteration, double r, double relR0, double relB);
  /// Calls of row(), the same number on the ranks that write and on those that do not.
  int rows() const { return rows_; }
  /// Throws InputError when something could not be written.
  void close();

 private:
  std::string path_;
  std::ofstream file_;
  int rows_ = 0;
};

}  // namespace mivo_solve
