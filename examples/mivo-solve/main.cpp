// SPDX-License-Identifier: Apache-2.0
/// mivo-solve: solves the linear system that a JSON configuration describes, and says how it went.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <thread>

#include "checks.hpp"
#include "input_error.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/launcher.hpp"
#include "options.hpp"
#include "output.hpp"
#include "ranks.hpp"
#include "report.hpp"
#include "run.hpp"
#include "words.hpp"

namespace {

using namespace mivo_solve;

void printError(const std::string& text, Output& output) {
  std::cout.flush();
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = text.substr(begin, end - begin);
    std::cerr << (line.compare(0, 1, " ") == 0 ? "" : "mivo-solve: ") << line << "\n";
    begin = end + 1;
  }
  output.printFault(text);
}

/// All ranks read the same command line, so that they agree on what is collective from there on.
void compareCommandLines(int argc, char** argv) {
  std::string mine;
  for (int i = 1; i < argc; ++i) mine += argv[i] + std::string(1, '\0');
  std::string first = mine;
  broadcast(first);
  if (onAnyRank(first != mine)) {
    throw InputError("the ranks have different command lines; give all the same");
  }
}

/// Several processes that were started together and do not know of each other would all solve the
/// whole system, and write the same files.
void refuseLoneWorld() {
  if (mivo::describeLoneWorld().empty()) return;
  throw InputError(
      "nothing is solved: this process was started as one of several and is alone all the same; "
      "take mivo-solve-mpi with the mpiexec of MPICH\nto solve in each process on its own: env -u "
      "PMI_SIZE -u OMPI_COMM_WORLD_SIZE -u PMIX_RANK -u SLURM_STEP_NUM_TASKS mivo-solve ...");
}

/// Rank 0 checks; all ranks learn the problem, or that there is none.
Problem checkOnRoot(const Options& options) {
  std::string text;
  onRoot([&] { text = checkProblem(options, worldSize()).toText(); });
  broadcast(text);
  return Problem::fromText(text);
}

int solve(const Options& options, int rank, Output& output) {
  const Problem problem = checkOnRoot(options);
  if (options.checkOnly) {
    if (rank == 0) {
      for (const std::string& note : problem.notes) {
        std::cout << "note: " << note << "\n";
      }
      std::cout << escaped(options.configuration) << ": configuration and files can be used"
                << std::endl;
      output.printLine({{"status", 0}, {"notes", problem.notes}});
    }
    return 0;
  }
  const Report report = runProblem(problem, options);
  if (rank == 0 && options.json) {
    output.printLine(toJson(report));
  } else if (rank == 0) {
    printReport(report, std::cout);
  }
  return report.status();
}

int run(int argc, char** argv, int rank, Output& output) {
  try {
    compareCommandLines(argc, argv);
    onRoot([&] {
      if (output.wasClosed()) throw InputError("standard output is closed");
    });
    int status = 0;
    std::string text;
    const std::optional<Options> options = parseOptions(argc, argv, text);
    if (options) {
      refuseLoneWorld();
      status = solve(*options, rank, output);
    } else if (rank == 0) {
      output.giveBack();
      std::cout << text;
    }
    const bool written = output.finish();
    onRoot([&] {
      if (!written) throw InputError("standard output: not everything could be written");
    });
    return status;
  } catch (const InputError& error) {
    if (!mivo::launchedWorld().speaks && worldSize() == 1) {
      // One of them speaks, and as a rule its end makes the launcher end the others.
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    if (rank == 0) printError(error.what(), output);
    return 1;
  } catch (const std::exception& error) {
    // Nothing says that the other ranks have met the same.
    printError("the run cannot go on: " + escaped(error.what()), output);
    abortAll();
  }
}

/// Where memory has run out, destructors that need some lead here, past every handler.
[[noreturn]] void endUncaught() {
  const char* text = "the run cannot go on: an error that nobody could catch";
  try {
    if (const std::exception_ptr error = std::current_exception()) std::rethrow_exception(error);
  } catch (const std::bad_alloc&) {
    text = "the run cannot go on: std::bad_alloc";
  } catch (...) {
  }
  std::fprintf(stderr, "mivo-solve: %s\n", text);
  Output::printUncaught(text);
  abortAll();
}

/// A stack that cannot grow is a crash without a word, so what a run needs of it, which is about
/// 150 kB, is taken before memory can run out.
[[gnu::noinline]] void takeStack() {
  constexpr std::size_t kBytes = std::size_t(1) << 18;
  constexpr std::size_t kPage = 4096;
  char room[kBytes];
  volatile char* const touched = room;
  for (std::size_t at = 0; at < kBytes; at += kPage) touched[at] = 0;
}

}  // namespace

int main(int argc, char** argv) {
  takeStack();
  std::set_terminate(endUncaught);
  // Also "--json=1", which is then refused.
  const bool asJson = std::any_of(argv + 1, argv + argc, [](const char* word) {
    return std::string(word).compare(0, 6, "--json") == 0;
  });
  Output output(asJson);
  // Files in the published form; the library reads this switch once.
  setenv("MIVO_STRICT_MATRIX_MARKET", "1", 1);
  mivo::Device::initialize();
  output.setRank(worldRank());
  const int status = run(argc, argv, worldRank(), output);
  output.finish();
  mivo::Device::finalize();
  return status;
}
