// SPDX-License-Identifier: Apache-2.0
#include "examples/mivo-solve/checks.hpp"
#include "examples/mivo-solve/input_error.hpp"
#include "examples/mivo-solve/schema.hpp"
#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/targets.hpp"

namespace mivo::fuzz {

void configuration(const std::string& input) {
  using namespace mivo_solve;
  const std::string mark = "\n---\n";
  const std::size_t end = std::min(input.find(mark), input.size());
  const MemoryFile file(input.substr(0, end));
  Options options;
  options.configuration = file.path();
  for (std::size_t begin = end + mark.size(); begin < input.size();) {
    const std::size_t stop = std::min(input.find('\n', begin), input.size());
    options.overrides.push_back(input.substr(begin, stop - begin));
    begin = stop + 1;
  }
  try {
    const Problem problem = checkProblem(options, 1);
    require(validateConfiguration(problem.configuration).empty(),
            "what is filled into a configuration fits the schema");
    require(Problem::fromText(problem.toText()).toText() == problem.toText(),
            "other ranks learn the same problem");
  } catch (const InputError& error) {
    require(error.what()[0] != '\0', "a refusal says why");
  }
}

}  // namespace mivo::fuzz
