// SPDX-License-Identifier: Apache-2.0
#include "bench/support/child.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace mivo::bench {
namespace {

/// A line "Name:  123 kB" of this process's status, in bytes.
double statusBytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, name.size(), name) == 0) {
      return std::strtod(line.c_str() + name.size(), nullptr) * 1024;
    }
  }
  return 0;
}

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

}  // namespace

double residentBytes() { return statusBytes("VmRSS:"); }
double peakBytes() { return statusBytes("VmHWM:"); }
void resetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

namespace detail {

int forkWithPipe(int& readEnd, int& writeEnd) {
  int ends[2];
  if (pipe(ends) != 0) fail("pipe");
  std::fflush(nullptr);
  const int child = fork();
  if (child < 0) fail("fork");
  close(child == 0 ? ends[0] : ends[1]);
  readEnd = ends[0];
  writeEnd = ends[1];
  return child;
}

void sendAndExit(int writeEnd, const Run& run) {
  const bool sent = write(writeEnd, &run, sizeof(run)) == static_cast<ssize_t>(sizeof(run));
  _exit(sent ? 0 : 1);
}

Run receive(int child, int readEnd) {
  Run run;
  const bool got = read(readEnd, &run, sizeof(run)) == static_cast<ssize_t>(sizeof(run));
  close(readEnd);
  int status = 0;
  waitpid(child, &status, 0);
  if (!got || !WIFEXITED(status) || WEXITSTATUS(status) != 0) fail("child process of a benchmark");
  return run;
}

}  // namespace detail
}  // namespace mivo::bench
