// SPDX-License-Identifier: Apache-2.0
#include "history.hpp"

#include <iomanip>

#include "input_error.hpp"
#include "words.hpp"

namespace mivo_solve {

History::History(const std::string& path) : path_(path) {
  if (path_.empty()) {
    return;
  }
  file_.open(path_);
  file_ << "iteration,residual,relative_to_start,relative_to_b\n"
        << std::scientific << std::setprecision(16);
}

void History::row(int iteration, double r, double relR0, double relB) {
  ++rows_;
  if (!path_.empty()) {
    file_ << iteration << ',' << r << ',' << relR0 << ',' << relB << '\n';
  }
}

void History::close() {
  if (path_.empty()) {
    return;
  }
  file_.close();
  if (!file_) {
    throw InputError("--history " + escaped(path_) + ": writing failed");
  }
}

}  // namespace mivo_solve
