// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace mivo_solve {

/// The command line.
struct Options {
  std::string configuration;
  std::vector<std::string> overrides;
  std::string device;    ///< empty: as the configuration says
  std::string history;   ///< CSV file, or empty
  std::string solution;  ///< Matrix Market file, or empty
  bool startFromTestcase = false;
  bool json = false;
  bool quiet = false;
  bool profile = false;
  bool checkOnly = false;
};

/// Reads the command line. Nothing when it asks for help, version, schema or list, which is then in
/// `text`; throws InputError for a wrong command line.
std::optional<Options> parseOptions(int argc, char** argv, std::string& text);

}  // namespace mivo_solve
