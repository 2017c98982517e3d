// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "configuration.hpp"
#include "options.hpp"

namespace mivo_solve {

/// A checked problem: what the ranks need to know to solve it.
struct Problem {
  json configuration;              ///< file names resolved, device and verbosity filled in
  bool complex = false;            ///< values are complex
  bool makeRhs = false;            ///< no file gives b, so that b = A (1, ..., 1)
  bool convert = false;            ///< the library would misread the matrix file as it stands
  std::int64_t expectedNnzs = 0;   ///< entries that the matrix must have; 0 when nothing is known
  std::vector<std::string> notes;  ///< remarks for the user

  std::string toText() const;
  static Problem fromText(const std::string& text);
};

/// Loads the configuration, validates it against the schema, looks at the files that it names, the
/// memory that the system needs, the device and the output files. Throws InputError with all faults
/// of the first stage that finds any. Runs on one rank of `ranks`.
Problem checkProblem(const Options& options, int ranks);

/// Name and parameters of the object under a key of the configuration, such as "solver".
std::string selectedName(const json& configuration, const std::string& family);
json& selectedParams(json& configuration, const std::string& family);

}  // namespace mivo_solve
