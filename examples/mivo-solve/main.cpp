// SPDX-License-Identifier: Apache-2.0
/// mivo-solve: solves the linear system that a JSON configuration describes, and says how it went.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>

#include "checks.hpp"
#include "input_error.hpp"
#include "mivo/utils/Device.hpp"
#include "options.hpp"
#include "ranks.hpp"
#include "report.hpp"
#include "run.hpp"

namespace {

using namespace mivo_solve;

/// While it lives, standard output goes to standard error, so that the texts of the library do not
/// mix with the one JSON line.
class QuietOutput {
 public:
  explicit QuietOutput(bool on) {
    if (on) {
      flush();
      saved_ = dup(STDOUT_FILENO);
      dup2(STDERR_FILENO, STDOUT_FILENO);
    }
  }
  ~QuietOutput() {
    if (saved_ >= 0) {
      flush();
      dup2(saved_, STDOUT_FILENO);
      close(saved_);
    }
  }
  QuietOutput(const QuietOutput&) = delete;
  QuietOutput& operator=(const QuietOutput&) = delete;

 private:
  static void flush() {
    std::cout.flush();
    std::fflush(stdout);
  }
  int saved_ = -1;
};

void printError(const std::string& text, bool asJson, int rank) {
  if (rank != 0) {
    return;
  }
  std::cout.flush();
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = text.substr(begin, end - begin);
    std::cerr << (line.compare(0, 1, " ") == 0 ? "" : "mivo-solve: ") << line << "\n";
    begin = end + 1;
  }
  if (asJson) {
    std::cout << json{{"status", 1}, {"error", text}}.dump(-1, ' ', true,
                                                           json::error_handler_t::replace)
              << std::endl;
  }
}

/// Rank 0 checks; all ranks learn the problem, or that there is none.
Problem checkOnRoot(const Options& options) {
  std::string text;
  onRoot([&] { text = checkProblem(options, worldSize()).toText(); });
  broadcast(text);
  return Problem::fromText(text);
}

int solve(const Options& options, int rank) {
  Report report;
  {
    const QuietOutput quiet(options.json);
    const Problem problem = checkOnRoot(options);
    if (options.checkOnly) {
      if (rank == 0) {
        for (const std::string& note : problem.notes) {
          std::cout << "note: " << note << "\n";
        }
        std::cout << options.configuration << ": configuration and files can be used" << std::endl;
      }
      return 0;
    }
    report = runProblem(problem, options);
  }
  if (rank == 0) {
    if (options.json) {
      std::cout << jsonLine(report) << std::endl;
    } else {
      printReport(report, std::cout);
    }
  }
  return report.status();
}

int run(int argc, char** argv, int rank) {
  bool asJson = false;
  for (int i = 1; i < argc; ++i) {
    asJson = asJson || std::string(argv[i]) == "--json";
  }
  try {
    int status = 0;
    const std::optional<Options> options = parseOptions(argc, argv, rank, status);
    return options ? solve(*options, rank) : status;
  } catch (const InputError& error) {
    printError(error.what(), asJson, rank);
    return 1;
  } catch (const std::exception& error) {
    // Nothing says that the other ranks have met the same.
    printError(std::string("the run cannot go on: ") + error.what(), asJson, 0);
    abortAll();
  }
}

/// Where memory has run out, destructors that need some lead here, past every handler.
[[noreturn]] void endUncaught() {
  const char* text = "an error that nobody could catch";
  try {
    if (const std::exception_ptr error = std::current_exception()) std::rethrow_exception(error);
  } catch (const std::bad_alloc&) {
    text = "std::bad_alloc";
  } catch (...) {
  }
  std::fprintf(stderr, "mivo-solve: the run cannot go on: %s\n", text);
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
  // Files in the published form; the library reads this switch once.
  setenv("MIVO_STRICT_MATRIX_MARKET", "1", 1);
  mivo::Device::initialize();
  const int status = run(argc, argv, worldRank());
  mivo::Device::finalize();
  return status;
}
