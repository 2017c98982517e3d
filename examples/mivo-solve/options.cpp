// SPDX-License-Identifier: Apache-2.0
#include "options.hpp"

#include <CLI/CLI.hpp>
#include <sstream>

#include "input_error.hpp"
#include "mivo_solve_version.hpp"
#include "schema.hpp"
#include "words.hpp"

namespace mivo_solve {
namespace {

const char* const kExamples = R"(Examples:
  mivo-solve poisson2d-jacobi.json
  mivo-solve poisson2d-jacobi.json --set testcase.PoissonFDM_params.N=200
  mivo-solve poisson3d-ssor.json --json --history residuals.csv
  mivo-solve matrix-market.json --solution x.mtx
  mivo-solve poisson3d-amg.json --profile

A configuration:
  {
    "testcase": {"testcase_type": "PoissonFDM", "PoissonFDM_params": {"dim": 2, "N": 100}},
    "solver": {
      "solver_type": "SolverPCG",
      "SolverPCG_params": {
        "rtol": 1e-8,
        "preconditioner": {"preconditioner_type": "PrecondJacobi"}
      }
    }
  }
File names in it are tried from the working directory, then from the folder of the configuration.

Exit status: 0 when |b - A x| <= 2 rtol max(|b|, |r0|), 2 when not, 1 for unusable input.)";

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, std::string& text) {
  Options options;
  std::string start = "zero";
  bool schema = false;
  bool list = false;
  CLI::App app("Solves A x = b as a JSON configuration describes it.", "mivo-solve");
  app.footer(kExamples);
  app.set_version_flag("--version", std::string("mivo-solve ") + kVersion);
  app.add_option("CONFIG", options.configuration, "JSON file with a testcase and a solver");
  app.add_option("--set", options.overrides,
                 "overwrite a value of the configuration; may be repeated")
      ->type_name("PATH.TO.KEY=VALUE")
      ->allow_extra_args(false);
  app.add_option("--device", options.device, "device of the system, such as cpu:0");
  app.add_option("--start", start, "start vector: zero, or the x of the test case")
      ->check(CLI::IsMember({"zero", "testcase"}))
      ->type_name("zero|testcase");
  app.add_option("--history", options.history, "write the residual of each iteration")
      ->type_name("FILE.csv");
  app.add_option("--solution", options.solution, "write x as a Matrix Market array")
      ->type_name("FILE.mtx");
  app.add_flag("--json", options.json, "print the outcome as one JSON line and nothing else")
      ->disable_flag_override();
  app.add_flag("--quiet", options.quiet, "do not turn on the solver's table");
  app.add_flag("--profile", options.profile,
               "measure the phases and levels of a multigrid hierarchy");
  app.add_flag("--check", options.checkOnly, "check configuration and files, and stop");
  app.add_flag("--schema", schema, "print the JSON Schema of configurations");
  app.add_flag("--list", list, "print the registered names and their keys");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& request) {
    std::ostringstream out;
    app.exit(request, out, out);
    text = out.str();
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    throw InputError(escaped(error.what()) + "\nmivo-solve --help shows the options");
  }
  if (schema || list) {
    std::ostringstream out;
    if (schema) out << schemaText();
    if (list) listSchema(out);
    text = out.str();
    return std::nullopt;
  }
  if (options.configuration.empty()) {
    throw InputError("CONFIG.json is missing\nmivo-solve --help shows the options");
  }
  options.startFromTestcase = start == "testcase";
  return options;
}

}  // namespace mivo_solve
